// Finds the open files of processes in /proc.
// SPDX-License-Identifier: MIT
#include "tests/cli/open_files.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <set>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace tarn_cli
{

namespace
{

/// Names of the files in a directory that a process has open, once per descriptor. A file without a name is "#INODE
/// (deleted)".
std::multiset<std::string> openFiles(pid_t process, const std::filesystem::path& directory)
{
    const std::string folder = std::filesystem::canonical(directory).string() + "/";
    std::multiset<std::string> names;
    std::error_code gone;
    std::filesystem::directory_iterator entry("/proc/" + std::to_string(process) + "/fd", gone);
    for (; !gone && entry != std::filesystem::directory_iterator(); entry.increment(gone)) {
        std::error_code closed;
        const std::string target = std::filesystem::read_symlink(entry->path(), closed).string();
        if (target.starts_with(folder)) names.insert(target.substr(folder.size()));
    }
    return names;
}

/// The temporary files of outputs among the open files. They have two descriptors, one of them for the lock; others,
/// such as that of the trial whether a file can get a name, have one.
std::set<std::string> outputsAmong(const std::multiset<std::string>& names)
{
    std::set<std::string> outputs;
    for (const std::string& name : names) {
        const bool isTemporary = name.starts_with('#') || name.find(".tarn-temporary-") != std::string::npos;
        if (isTemporary && names.count(name) == 2) outputs.insert(name);
    }
    return outputs;
}

/// The processes of the command: it and its children.
std::vector<pid_t> processesOf(const Process& process)
{
    const std::string id = std::to_string(process.id());
    std::ifstream children("/proc/" + id + "/task/" + id + "/children");
    std::vector<pid_t> all{process.id()};
    for (pid_t child = 0; children >> child;) all.push_back(child);
    return all;
}

bool comesTrue(const std::function<bool()>& condition)
{
    using namespace std::chrono_literals;
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

} // namespace

bool hasFilesWithoutNames(const std::filesystem::path& directory)
{
    const int file = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (file >= 0) close(file);
    return file >= 0;
}

bool writesOutputs(const Process& process, const std::filesystem::path& directory, std::size_t outputs)
{
    return comesTrue([&] {
        std::set<std::string> temporaries;
        for (const pid_t each : processesOf(process)) temporaries.merge(outputsAmong(openFiles(each, directory)));
        return temporaries.size() >= outputs;
    });
}

bool writesOutputOf(const Process& process, const std::filesystem::path& directory, const std::string& input)
{
    return comesTrue([&] {
        const std::vector<pid_t> all = processesOf(process);
        return std::any_of(all.begin(), all.end(), [&](pid_t each) {
            const std::multiset<std::string> names = openFiles(each, directory);
            return names.contains(input) && !outputsAmong(names).empty();
        });
    });
}

} // namespace tarn_cli
