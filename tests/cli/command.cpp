// Runs programs as processes and collects their output.
// SPDX-License-Identifier: MIT
#include "tests/cli/command.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarn_cli
{

namespace
{

void require(bool condition, const char* what)
{
    if (!condition) throw std::system_error(errno, std::generic_category(), what);
}

struct Pipe
{
    Pipe()
    {
        int ends[2];
        require(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
        readEnd = ends[0];
        writeEnd = ends[1];
    }

    int readEnd;
    int writeEnd;
};

/// Reads until the other end closes, then closes this end.
std::string drain(int descriptor)
{
    std::string bytes;
    char chunk[65536];
    for (ssize_t got = 0; (got = read(descriptor, chunk, sizeof chunk)) != 0;) {
        if (got > 0) bytes.append(chunk, static_cast<std::size_t>(got));
        if (got < 0 && errno != EINTR) break;
    }
    close(descriptor);
    return bytes;
}

/// Writes everything unless the other end closes first, then closes this end.
void feed(int descriptor, const std::string& bytes)
{
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t written = write(descriptor, bytes.data() + done, bytes.size() - done);
        if (written <= 0) break;
        done += static_cast<std::size_t>(written);
    }
    close(descriptor);
}

/// Sets the peak memory of this process to its present memory. The kernel counts the peak of a parent as memory of its
/// children too, and earlier tests of this process may have used more than the program may use.
void forgetPeakMemory()
{
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5;
}

} // namespace

Process::Process(const Invocation& invocation, const std::filesystem::path& directory, int inputEnd, int outputEnd,
                 int errorEnd)
{
    const std::string program = invocation.program.empty() ? TARN_COMMAND : invocation.program;
    std::vector<char*> arguments{const_cast<char*>(program.c_str())};
    for (const std::string& argument : invocation.arguments) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    // Signals must not leave a core file in the directory.
    const rlimit noCore{.rlim_cur = 0, .rlim_max = 0};
    setrlimit(RLIMIT_CORE, &noCore);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    posix_spawn_file_actions_adddup2(&actions, inputEnd, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, outputEnd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errorEnd, STDERR_FILENO);

    // The tests ignore SIGPIPE, and their parent may ignore or block any signal, as nohup and shells do.
    sigset_t defaults;
    sigfillset(&defaults);
    if (invocation.ignoredSignal != 0) sigdelset(&defaults, invocation.ignoredSignal);
    sigset_t blocked;
    sigemptyset(&blocked);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &blocked);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    std::vector<std::string> added = invocation.environment;
    if (!invocation.preload.empty()) added.push_back("LD_PRELOAD=" + invocation.preload);
    std::vector<char*> environment;
    for (std::string& variable : added) environment.push_back(variable.data());
    for (char** variable = environ; *variable != nullptr; ++variable) environment.push_back(*variable);
    environment.push_back(nullptr);

    forgetPeakMemory();
    const int error = posix_spawnp(&pid, program.c_str(), &actions, &attributes, arguments.data(), environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::system_error(error, std::generic_category(), program);
}

Process::~Process()
{
    if (pid < 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

void Process::signal(int signalNumber) const
{
    kill(pid, signalNumber);
}

void Process::wait(Result& result)
{
    int status = 0;
    rusage usage{};
    require(wait4(pid, &status, 0, &usage) == pid, "wait4");
    pid = -1;
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signalNumber = WTERMSIG(status);
    result.peakKibibytes = usage.ru_maxrss;
}

void expectDeathBy(int signalNumber, Process& process)
{
    process.signal(signalNumber);
    Result result;
    process.wait(result);
    EXPECT_EQ(result.signalNumber, signalNumber);
}

Invocation onLesserFileSystem(const std::string& features, Invocation invocation)
{
    invocation.preload = TARN_LESSER_FILE_SYSTEM;
    invocation.environment.push_back("TARN_LACKS=" + features);
    return invocation;
}

Result runIn(const std::filesystem::path& directory, const Invocation& invocation)
{
    std::signal(SIGPIPE, SIG_IGN);
    Pipe output;
    Pipe errors;
    Pipe input;
    const int inputEnd =
        invocation.inputFile.empty() ? input.readEnd : open(invocation.inputFile.c_str(), O_RDONLY | O_CLOEXEC);
    const int outputEnd = invocation.outputNull ? open("/dev/null", O_WRONLY | O_CLOEXEC) : output.writeEnd;
    require(inputEnd >= 0 && outputEnd >= 0, "open");

    Process process(invocation, directory, inputEnd, outputEnd, errors.writeEnd);
    if (inputEnd != input.readEnd) close(inputEnd);
    if (outputEnd != output.writeEnd) close(outputEnd);
    close(input.readEnd);
    close(output.writeEnd);
    close(errors.writeEnd);

    Result result;
    const std::string bytes = invocation.input.value_or("");
    std::thread feeder([&] { feed(input.writeEnd, bytes); });
    std::thread reader([&] { result.output = drain(output.readEnd); });
    result.errors = drain(errors.readEnd);
    feeder.join();
    reader.join();
    process.wait(result);
    return result;
}

void CommandTest::SetUp()
{
    std::string name = (std::filesystem::temp_directory_path() / "tarn-test-XXXXXX").string();
    require(mkdtemp(name.data()) != nullptr, "mkdtemp");
    directory = name;
}

void CommandTest::TearDown()
{
    std::filesystem::remove_all(directory);
}

Result CommandTest::shell(const std::string& line) const
{
    return runIn(directory, {.arguments = {"-c", "TARN='" TARN_COMMAND "'; " + line}, .program = "/bin/sh"});
}

std::vector<std::string> CommandTest::files() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string bytesOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeBytes(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

} // namespace tarn_cli
