// Signals, kills and name conflicts during a run.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/open_files.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <random>
#include <regex>
#include <thread>
#include <tuple>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace tarn_cli
{

namespace
{

/// The signals that end a process by default and that it can catch.
std::vector<int> deadlySignals()
{
    std::vector<int> signals;
    for (int signalNumber = 1; signalNumber <= SIGRTMAX; ++signalNumber) {
        constexpr std::array kOthers{SIGKILL, SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT, SIGCHLD, SIGURG, SIGWINCH};
        if (std::find(kOthers.begin(), kOthers.end(), signalNumber) == kOthers.end()) signals.push_back(signalNumber);
    }
    return signals;
}

/// Whether a signal means a crash, or a file that is too large, or belongs to the C library.
bool isOfCrashes(int signalNumber)
{
    constexpr std::array kCrashes{SIGILL, SIGTRAP, SIGABRT, SIGBUS, SIGFPE, SIGSEGV, SIGSYS, SIGXFSZ};
    return std::find(kCrashes.begin(), kCrashes.end(), signalNumber) != kCrashes.end() ||
           (signalNumber > SIGSYS && signalNumber < SIGRTMIN);
}

} // namespace

/// The command while it waits for input and writes to a file.
class Interruption : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        ASSERT_EQ(pipe2(input, O_CLOEXEC), 0);
        sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
        ASSERT_GE(sink, 0);
    }

    void TearDown() override
    {
        for (const int descriptor : {input[0], input[1], sink}) close(descriptor);
        CommandTest::TearDown();
    }

    /// Waits until the command writes a number of outputs.
    bool writes(const Process& process, std::size_t outputs = 1) const
    {
        return writesOutputs(process, directory, outputs);
    }

    /// Writes a sparse file of two hours, longer than the command can upmix before a signal arrives.
    void writeHours(const std::string& name) const
    {
        writeAudio(at(name), SF_FORMAT_W64 | SF_FORMAT_PCM_16, 192000, 2, {});
        constexpr std::uint64_t kBytes = std::uint64_t{7200} * 192000 * 4;
        std::string header = bytesOf(at(name));
        const std::size_t size = header.find("data") + 16;
        for (std::size_t i = 0; i < 8; ++i) header[size + i] = static_cast<char>((kBytes + 24) >> (8 * i));
        writeBytes(at(name), header);
        std::filesystem::resize_file(at(name), size + 8 + kBytes);
    }

    /// Reads until a text has come; an empty one: to the end.
    static std::string readTo(int descriptor, const std::string& wanted)
    {
        std::string text;
        char part[1000];
        ssize_t got = 0;
        while ((wanted.empty() || text.find(wanted) == std::string::npos) &&
               (got = read(descriptor, part, sizeof part)) > 0)
            text.append(part, static_cast<std::size_t>(got));
        return text;
    }

    /// Sends frames to the standard input of the command.
    void sendFrames() const
    {
        const std::string frames = pcmOf(stereoNoise(5000, 16), 16);
        ASSERT_EQ(write(input[1], frames.data(), frames.size()), static_cast<ssize_t>(frames.size()));
    }

    /// Ends the standard input of the command and waits for the command.
    Result finish(Process& process)
    {
        close(input[1]);
        input[1] = -1;
        Result result;
        process.wait(result);
        return result;
    }

    int input[2] = {-1, -1};
    int sink = -1;
    Invocation toFile{.arguments = {"upmix", "--raw", "48000:16", "--force", "-", "out.wav"}};
};

TEST_F(Interruption, LeavesNoFilesAndDiesByTheSignal)
{
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        Process process(toFile, directory, input[0], sink, sink);
        sendFrames();
        ASSERT_TRUE(writes(process));
        expectDeathBy(signalNumber, process);
        EXPECT_TRUE(files().empty());
    }
}

TEST_F(Interruption, BySignalsThatAreNotCrashesRemovesATemporaryFileWithAName)
{
    writeBytes(at("out.wav"), "precious");
    for (const int signalNumber : deadlySignals()) {
        if (isOfCrashes(signalNumber)) continue;
        Process process(onLesserFileSystem("tmpfile", toFile), directory, input[0], sink, sink);
        ASSERT_TRUE(writes(process));
        ASSERT_EQ(files().size(), 2u) << "the temporary file has no name";
        expectDeathBy(signalNumber, process);
        EXPECT_EQ(bytesOf(at("out.wav")), "precious");
        EXPECT_EQ(files(), (std::vector<std::string>{"out.wav"})) << signalNumber;
    }
}

TEST_F(Interruption, ByAnySignalAtAnyTimeLeavesTheOldOrTheNewOutput)
{
    if (!hasFilesWithoutNames(directory)) GTEST_SKIP() << "the file system has no files without names";
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(50000, 16));
    toFile.arguments = {"upmix", "--quiet", "--force", "in.wav", "out.wav"};
    // The sanitizers handle some signals.
    toFile.environment = {"ASAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0"};
    auto length = std::chrono::steady_clock::duration::max(); // of the fastest run
    for (int i = 0; i < 3; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        ASSERT_EQ(runIn(directory, toFile).exitCode, 0);
        length = std::min(length, std::chrono::steady_clock::now() - begin);
    }
    const std::string complete = bytesOf(at("out.wav"));

    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::size_t killed = 0;
    const std::vector<int> signals = deadlySignals();
    for (const int signalNumber : signals) {
        writeBytes(at("out.wav"), "precious");
        Process process(toFile, directory, input[0], sink, sink);
        std::this_thread::sleep_for(length * (random() % 1000) / 1000);
        process.signal(signalNumber);
        Result result;
        process.wait(result);
        // It can have ended before the signal, and it ignores one: a limit of the file size is an error of writing.
        if (result.signalNumber == 0) {
            EXPECT_EQ(result.exitCode, 0) << signalNumber;
        } else {
            EXPECT_EQ(result.signalNumber, signalNumber);
        }
        killed += result.signalNumber != 0 ? 1 : 0;
        const std::string bytes = bytesOf(at("out.wav"));
        EXPECT_TRUE(bytes == complete || (bytes == "precious" && result.signalNumber != 0)) << signalNumber;
        EXPECT_EQ(files(), (std::vector<std::string>{"in.wav", "out.wav"})) << signalNumber;
    }
    EXPECT_GT(killed, signals.size() / 4) << "most runs ended before the signal";
}

TEST_F(Interruption, WhileAHiddenNameExistsWaitsUntilItIsGone)
{
    if (!hasFilesWithoutNames(directory)) GTEST_SKIP() << "the file system has no files without names";
    for (const int signalNumber : {SIGABRT, SIGINT}) {
        writeBytes(at("out.wav"), "old");
        // The first link is a trial, the second one that of the complete file.
        for (const std::string link : {"1", "2"}) {
            Invocation invocation = onLesserFileSystem("", toFile);
            invocation.environment.push_back("TARN_SIGNAL=" + std::to_string(signalNumber) + " " + link);
            invocation.input = pcmOf(stereoNoise(5000, 16), 16);
            EXPECT_EQ(runIn(directory, invocation).signalNumber, signalNumber);
            EXPECT_EQ(bytesOf(at("out.wav")) == "old", link == "1") << signalNumber;
            EXPECT_EQ(files(), (std::vector<std::string>{"out.wav"})) << signalNumber << ' ' << link;
        }
        EXPECT_EQ(readAudio(at("out.wav")).info.frames, 5000);
    }
}

TEST_F(Interruption, OfAPictureLeavesNoFiles)
{
    const std::vector<std::vector<std::string>> commands{
        {"picture", "--raw", "48000:16", "-", "out.png"},
        {"upmix", "--picture", "out.svg", "--raw", "48000:16", "-", "out.wav"}};
    for (const std::vector<std::string>& arguments : commands) {
        Process process({.arguments = arguments}, directory, input[0], sink, sink);
        sendFrames();
        ASSERT_TRUE(writes(process, arguments.front() == "picture" ? 1 : 2));
        expectDeathBy(SIGINT, process);
        EXPECT_TRUE(files().empty());
    }
}

TEST_F(Interruption, TestsDoNotDependOnSignalsThatTheirParentIgnores)
{
    // As in a background job of a shell.
    std::signal(SIGINT, SIG_IGN);
    Process process(toFile, directory, input[0], sink, sink);
    std::signal(SIGINT, SIG_DFL);
    sendFrames();
    ASSERT_TRUE(writes(process));
    process.signal(SIGINT);
    EXPECT_EQ(finish(process).signalNumber, SIGINT);
}

TEST_F(Interruption, ForcedRunLeavesTheOldFile)
{
    writeBytes(at("out.wav"), "precious");
    Process process(toFile, directory, input[0], sink, sink);
    ASSERT_TRUE(writes(process));
    expectDeathBy(SIGINT, process);
    EXPECT_EQ(bytesOf(at("out.wav")), "precious");
    EXPECT_EQ(files(), (std::vector<std::string>{"out.wav"}));
}

TEST_F(Interruption, StopsARunBusyWithAFile)
{
    writeHours("in.w64");
    Process process({.arguments = {"upmix", "in.w64", "out.flac"}}, directory, input[0], sink, sink);
    ASSERT_TRUE(writes(process));
    expectDeathBy(SIGTERM, process);
    EXPECT_EQ(files(), (std::vector<std::string>{"in.w64"}));
}

TEST_F(Interruption, BatchStopsEveryProcess)
{
    const std::vector<std::string> inputs{"a.w64", "b.w64", "c.w64", "d.w64"};
    for (const std::string& name : inputs) writeHours(name);
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        Process process({.arguments = {"upmix", "-j", "3", "--output-dir", ".", "a.w64", "b.w64", "c.w64", "d.w64"}},
                        directory, input[0], sink, sink);
        ASSERT_TRUE(writes(process, 3));
        expectDeathBy(signalNumber, process);
        EXPECT_EQ(files(), inputs);
    }
}

TEST_F(Interruption, BatchReportsDoneCountAndFirstMissingFile)
{
    writeHours("b.w64");
    writeHours("c.w64");
    for (const std::string name : {"a.wav", "d.wav"})
        writeAudio(at(name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(5000, 16));
    using Names = std::vector<std::string>;
    // With two jobs, the last file is complete while the first is still in work.
    for (const auto& [jobs, inputs, end] : std::vector<std::tuple<std::string, Names, std::string>>{
             {"1", {"a.wav", "b.w64", "c.w64"}, "1 of 3 files done; b.w64 is the first that is missing"},
             {"2", {"b.w64", "d.wav", "c.w64"}, "1 of 3 files done; b.w64 is the first that is missing"}}) {
        for (const int signalNumber : {SIGINT, SIGTERM}) {
            int errors[2];
            ASSERT_EQ(pipe2(errors, O_CLOEXEC), 0);
            Invocation batch{.arguments = {"upmix", "--quiet", "--force", "-j", jobs, "--output-dir", "."}};
            batch.arguments.insert(batch.arguments.end(), inputs.begin(), inputs.end());
            Process process(batch, directory, input[0], sink, errors[1]);
            close(errors[1]);
            ASSERT_TRUE(writesOutputOf(process, directory, jobs == "1" ? "b.w64" : "c.w64"));
            expectDeathBy(signalNumber, process);
            char text[1000];
            const ssize_t got = read(errors[0], text, sizeof text);
            close(errors[0]);
            EXPECT_EQ(std::string(text, static_cast<std::size_t>(std::max<ssize_t>(got, 0))),
                      "tarn: interrupted: " + end + "; run again with --skip-existing\n");
        }
    }
}

TEST_F(Interruption, BatchPrintsItsReport)
{
    writeAudio(at("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(5000, 16));
    for (const std::string name : {"b.w64", "c.w64"}) writeHours(name);
    const int report = open(at("report.json").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    Process process({.arguments = {"upmix", "--json", "--output-dir", ".", "a.wav", "b.w64", "c.w64"}}, directory,
                    input[0], report, sink);
    close(report);
    ASSERT_TRUE(writesOutputOf(process, directory, "b.w64"));
    expectDeathBy(SIGINT, process);
    const nlohmann::json json = nlohmann::json::parse(bytesOf(at("report.json")));
    EXPECT_EQ(json["not_tried"], 2);
    ASSERT_EQ(json["files"].size(), 3u);
    EXPECT_EQ(json["files"][0]["output"], "./a.wav-3.0.wav");
    EXPECT_EQ(json["files"][0]["frames"], 5000);
    EXPECT_EQ(json["files"][1], (nlohmann::json{{"input", "b.w64"}, {"not_tried", true}}));
}

TEST_F(Interruption, InfoTellsHowManyFilesItExamined)
{
    writeAudio(at("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(5000, 16));
    for (const std::string name : {"b.w64", "c.w64"}) writeHours(name);
    int output[2];
    int errors[2];
    ASSERT_EQ(pipe2(output, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(errors, O_CLOEXEC), 0);
    Process process({.arguments = {"info", "-j", "2", "a.wav", "b.w64", "c.w64"}}, directory, input[0], output[1],
                    errors[1]);
    close(output[1]);
    close(errors[1]);
    const std::string first = readTo(output[0], "\n");
    EXPECT_TRUE(first.starts_with("a.wav ")) << first;
    expectDeathBy(SIGINT, process);
    EXPECT_EQ(readTo(errors[0], ""), "tarn: interrupted: 1 of 3 files examined\n");
    close(output[0]);
    close(errors[0]);
}

TEST_F(Interruption, ReportErasesItsStatusLine)
{
    for (const std::string name : {"a.w64", "b.w64"}) writeHours(name);
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    const int screen = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(screen, 0);
    Process process({.arguments = {"report", "-j", "2", "-o", "out.html", "a.w64", "b.w64"}}, directory, input[0], sink,
                    screen);
    close(screen);
    readTo(terminal, "upmixing 2 of 2: b.w64");
    expectDeathBy(SIGINT, process);
    const std::string rest = readTo(terminal, "");
    EXPECT_TRUE(rest.ends_with("\r\033[Ktarn: interrupted: 0 of 2 files upmixed; out.html is not written\r\n")) << rest;
    EXPECT_EQ(files(), (std::vector<std::string>{"a.w64", "b.w64"}));
    close(terminal);
}

TEST_F(Interruption, KillLeavesNoProcess)
{
    writeHours("a.w64");
    writeHours("b.w64");
    int errors[2];
    ASSERT_EQ(pipe2(errors, O_CLOEXEC), 0);
    Process process({.arguments = {"upmix", "-j", "2", "--output-dir", ".", "a.w64", "b.w64"}}, directory, input[0],
                    sink, errors[1]);
    close(errors[1]);
    ASSERT_TRUE(writes(process, 2));
    expectDeathBy(SIGKILL, process);
    // The pipe ends when the last process that holds its write end exits.
    pollfd end{.fd = errors[0], .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&end, 1, 10000), 1);
    EXPECT_EQ(end.revents, POLLHUP);
    close(errors[0]);
}

TEST_F(Interruption, KillLeavesNoFiles)
{
    if (!hasFilesWithoutNames(directory)) GTEST_SKIP() << "the file system has no files without names";
    writeBytes(at("out.wav"), "precious");
    Process process(toFile, directory, input[0], sink, sink);
    ASSERT_TRUE(writes(process));
    expectDeathBy(SIGKILL, process);
    EXPECT_EQ(bytesOf(at("out.wav")), "precious");
    EXPECT_EQ(files(), (std::vector<std::string>{"out.wav"}));
}

TEST_F(Interruption, KillLeavesATemporaryFileThatTheNextRunRemoves)
{
    writeBytes(at("out.wav"), "precious");
    Process process(onLesserFileSystem("tmpfile", toFile), directory, input[0], sink, sink);
    ASSERT_TRUE(writes(process));
    expectDeathBy(SIGKILL, process);
    ASSERT_EQ(files().size(), 2u);
    EXPECT_TRUE(std::regex_match(files()[0], std::regex("\\.out\\.wav\\.tarn-temporary-[0-9]+-[A-Za-z0-9]{6}")))
        << files()[0];

    EXPECT_EQ(tarn({"demo", "scene.wav"}).exitCode, 0);
    EXPECT_EQ(files(), (std::vector<std::string>{"out.wav", "scene-stereo.wav", "scene.wav"}));
    EXPECT_EQ(bytesOf(at("out.wav")), "precious");
}

TEST_F(Interruption, TemporaryFilesOfActiveRunsAreKept)
{
    Process process(onLesserFileSystem("tmpfile", toFile), directory, input[0], sink, sink);
    sendFrames();
    ASSERT_TRUE(writes(process));
    const std::vector<std::string> writing = files();
    ASSERT_EQ(writing.size(), 1u);
    EXPECT_EQ(tarn({"demo", "scene.wav"}).exitCode, 0);
    EXPECT_EQ(files(), (std::vector<std::string>{writing[0], "scene-stereo.wav", "scene.wav"}));
    EXPECT_EQ(finish(process).exitCode, 0);
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 5000);
    EXPECT_EQ(files(), (std::vector<std::string>{"out.wav", "scene-stereo.wav", "scene.wav"}));
}

TEST_F(Interruption, StopsARunWhoseReaderStalls)
{
    int output[2];
    ASSERT_EQ(pipe2(output, O_CLOEXEC), 0);
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(200000, 16));
    Process process({.arguments = {"upmix", "in.wav", "-"}}, directory, input[0], output[1], sink);
    close(output[1]);
    char first = 0;
    ASSERT_EQ(read(output[0], &first, 1), 1);
    expectDeathBy(SIGINT, process);
    close(output[0]);
}

TEST_F(Interruption, FileOfAnotherProgramIsNotOverwritten)
{
    const Invocation toNewFile{.arguments = {"upmix", "--raw", "48000:16", "-", "out.wav"}};
    for (const std::string features : {"", "linkat", "tmpfile", "tmpfile,noreplace", "tmpfile,noreplace,links"}) {
        Process process(onLesserFileSystem(features, toNewFile), directory, input[0], sink, sink);
        ASSERT_TRUE(writes(process));
        writeBytes(at("out.wav"), "theirs");
        sendFrames();
        EXPECT_EQ(finish(process).exitCode, 64) << features;
        EXPECT_EQ(bytesOf(at("out.wav")), "theirs");
        EXPECT_EQ(files(), (std::vector<std::string>{"out.wav"})) << features;
        std::filesystem::remove(at("out.wav"));
        close(input[0]);
        ASSERT_EQ(pipe2(input, O_CLOEXEC), 0);
    }
}

TEST_F(Interruption, IgnoredSignalsStayIgnored)
{
    toFile.ignoredSignal = SIGHUP;
    std::signal(SIGHUP, SIG_IGN);
    Process process(toFile, directory, input[0], sink, sink);
    std::signal(SIGHUP, SIG_DFL);
    ASSERT_TRUE(writes(process));
    process.signal(SIGHUP);
    sendFrames();
    EXPECT_EQ(finish(process).exitCode, 0);
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 5000);
}

} // namespace tarn_cli
