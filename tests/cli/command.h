// Runs programs as processes and collects their output.
// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace tarn_cli
{

/// Result of a program that ended.
struct Result
{
    int exitCode = -1;      ///< -1 after a signal
    int signalNumber = 0;   ///< signal that ended it, or 0
    long peakKibibytes = 0; ///< largest resident set
    std::string output;     ///< standard output
    std::string errors;     ///< standard error
};

/// A program to run.
struct Invocation
{
    std::vector<std::string> arguments{};   ///< without the program name
    std::string program{};                  ///< path, or name to search in PATH; empty for the command under test
    std::optional<std::string> input{};     ///< bytes for standard input, sent through a pipe
    std::string inputFile{};                ///< file for standard input instead
    bool outputNull = false;                ///< standard output goes to /dev/null
    std::string preload{};                  ///< shared object to preload
    std::vector<std::string> environment{}; ///< further variables, as NAME=VALUE
    int ignoredSignal = 0;                  ///< a signal that stays ignored if this process ignores it; 0 for none
};

/// A running program. It starts with the default actions of signals, none of them blocked. The destructor kills it if
/// it still runs.
class Process
{
public:
    /// directory  its working directory
    /// inputEnd   descriptor that becomes its standard input
    Process(const Invocation& invocation, const std::filesystem::path& directory, int inputEnd, int outputEnd,
            int errorEnd);
    ~Process();

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t id() const noexcept { return pid; }

    /// Sends a signal.
    void signal(int signalNumber) const;

    /// Waits until it ends and stores how it ended.
    void wait(Result& result);

private:
    pid_t pid = -1;
};

/// Sends a signal to a program and expects that it dies by it.
void expectDeathBy(int signalNumber, Process& process);

/// Makes a program run on a file system that lacks features; see lesser_file_system.cpp.
Invocation onLesserFileSystem(const std::string& features, Invocation invocation);

/// Runs a program to its end in a directory.
Result runIn(const std::filesystem::path& directory, const Invocation& invocation);

/// A test of the command in an empty directory, which is removed afterwards.
class CommandTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Runs `tarn` with the arguments.
    Result tarn(const std::vector<std::string>& arguments) const { return runIn(directory, {.arguments = arguments}); }

    /// Runs `tarn` with the arguments and sends the bytes to its standard input.
    Result tarnWithInput(const std::string& bytes, const std::vector<std::string>& arguments) const
    {
        return runIn(directory, {.arguments = arguments, .input = bytes});
    }

    /// Runs `tarn` with a libsndfile that crashes on files of certain names; see crashing_decoder.cpp.
    Result tarnWithCrashes(const std::vector<std::string>& arguments) const
    {
        return runIn(directory, {.arguments = arguments, .preload = TARN_CRASHING_DECODER});
    }

    /// Runs `tarn` with files limited to 64 KiB; see full_disk.cpp.
    Result tarnOnFullDisk(const std::vector<std::string>& arguments) const
    {
        return runIn(directory, {.arguments = arguments, .preload = TARN_FULL_DISK});
    }

    /// Runs `tarn` on a file system without locks, whose disk becomes full; see shared_ledger.cpp.
    Result tarnOnSharedLedger(const std::vector<std::string>& arguments) const
    {
        return runIn(directory, {.arguments = arguments, .preload = TARN_SHARED_LEDGER});
    }

    /// Runs `tarn` on a file system that lacks features; see lesser_file_system.cpp.
    Result tarnOnLesserFileSystem(const std::string& features, const std::vector<std::string>& arguments) const
    {
        return runIn(directory, onLesserFileSystem(features, {.arguments = arguments}));
    }

    /// Runs `tarn` on a disk with bad sectors; see unreadable_disk.cpp.
    Result tarnOnUnreadableDisk(const std::vector<std::string>& arguments) const
    {
        return runIn(directory, {.arguments = arguments, .preload = TARN_UNREADABLE_DISK});
    }

    /// Runs a shell command line. $TARN is the command under test.
    Result shell(const std::string& line) const;

    /// Full path of a file in the directory.
    std::string at(const std::string& name) const { return (directory / name).string(); }

    /// Sorted names of all files in the directory.
    std::vector<std::string> files() const;

    std::filesystem::path directory;
};

/// Reads all bytes of a file.
std::string bytesOf(const std::filesystem::path& path);

/// Writes the bytes to a file.
void writeBytes(const std::filesystem::path& path, const std::string& bytes);

} // namespace tarn_cli
