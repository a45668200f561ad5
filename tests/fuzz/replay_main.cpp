// The main of a fuzz target without libFuzzer: runs it on files and on the files of folders.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/fuzz_target.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{

std::string current; ///< the current input, printed on a failure

void nameInput()
{
    for (const char* const part : {"replay: failed on ", current.c_str(), "\n"})
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, part, std::strlen(part));
}

extern "C" void nameInputAndDie(int signalNumber)
{
    nameInput();
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
}

/// The files of all arguments, sorted by name.
std::vector<std::string> inputsOf(const std::vector<std::string>& arguments)
{
    std::vector<std::string> inputs;
    for (const std::string& argument : arguments) {
        if (!std::filesystem::is_directory(argument)) {
            inputs.push_back(argument);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argument)) inputs.push_back(entry.path().string());
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

} // namespace

// The sanitizers end the process without a signal.
extern "C" [[gnu::weak]] void __sanitizer_set_death_callback(void (*callback)());

int main(int count, char** arguments)
{
    for (const int signalNumber : {SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE})
        std::signal(signalNumber, nameInputAndDie);
    if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(nameInput);

    LLVMFuzzerInitialize(&count, &arguments);
    const std::vector<std::string> inputs = inputsOf({arguments + 1, arguments + count});
    if (inputs.empty()) {
        std::fprintf(stderr, "replay: no inputs; name files, or folders with files\n");
        return 64;
    }
    for (const std::string& input : inputs) {
        current = input;
        std::ifstream file(input, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        if (!file) {
            std::fprintf(stderr, "replay: %s cannot be read\n", input.c_str());
            return 66;
        }
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    return 0;
}
