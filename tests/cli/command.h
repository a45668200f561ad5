#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace tarn_cli
{

/// What a program left when it ended.
struct Result
{
    int exitCode = -1;      ///< -1: it died by a signal
    int signalNumber = 0;   ///< that it died by
    long peakKibibytes = 0; ///< largest resident set
    std::string output;     ///< standard output
    std::string errors;     ///< standard error
};

/// A program to be run.
struct Invocation
{
    std::vector<std::string> arguments{}; ///< after the program's name
    std::string program{};                ///< path, or name to be searched for; empty: the command under test
    std::optional<std::string> input{};   ///< bytes that come through a pipe as standard input; else nothing
    std::string inputFile{};              ///< file as standard input instead
    bool outputNull = false;              ///< standard output goes to /dev/null
    std::string preload{};                ///< shared object that is loaded before the program's
};

/// A program that runs. It is killed if it still does at the end.
class Process
{
public:
    /// directory  where it runs
    /// inputEnd   descriptor that becomes its standard input
    Process(const Invocation& invocation, const std::filesystem::path& directory, int inputEnd, int outputEnd,
            int errorEnd);
    ~Process();

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Sends a signal.
    void signal(int signalNumber) const;

    /// Waits for its end and fills in how it came.
    void wait(Result& result);

private:
    pid_t pid = -1;
};

/// Runs a program to its end in a directory.
Result runIn(const std::filesystem::path& directory, const Invocation& invocation);

/// A test of the command in an empty directory of its own, which is gone afterwards.
class CommandTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Runs `tarn` with the arguments.
    Result tarn(const std::vector<std::string>& arguments) const { return runIn(directory, {.arguments = arguments}); }

    /// Runs `tarn` with the arguments, and the bytes through a pipe.
    Result tarnFed(const std::string& bytes, const std::vector<std::string>& arguments) const
    {
        return runIn(directory, {.arguments = arguments, .input = bytes});
    }

    /// Runs `tarn` with a libsndfile that crashes on files of certain names; see crashing_decoder.cpp.
    Result tarnWithCrashes(const std::vector<std::string>& arguments) const
    {
        return runIn(directory, {.arguments = arguments, .preload = TARN_CRASHING_DECODER});
    }

    /// Runs `tarn` where no file can become larger than 64 KiB; see full_disk.cpp.
    Result tarnOnFullDisk(const std::vector<std::string>& arguments) const
    {
        return runIn(directory, {.arguments = arguments, .preload = TARN_FULL_DISK});
    }

    /// Runs a line of shell in which $TARN is the command.
    Result shell(const std::string& line) const;

    /// Full name of a file in the directory.
    std::string at(const std::string& name) const { return (directory / name).string(); }

    /// Names of all files in the directory, in order.
    std::vector<std::string> files() const;

    std::filesystem::path directory;
};

/// A file's bytes.
std::string bytesOf(const std::filesystem::path& path);

/// Writes a file of the bytes.
void writeBytes(const std::filesystem::path& path, const std::string& bytes);

} // namespace tarn_cli
