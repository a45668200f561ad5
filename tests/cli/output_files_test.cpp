// Creating and replacing output files.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/open_files.h"

#include <algorithm>
#include <fstream>
#include <tuple>

#include <sys/stat.h>

namespace tarn_cli
{

class OutputFiles : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(9000, 16));
    }

    mode_t modeOf(const std::string& name) const
    {
        struct stat status = {};
        EXPECT_EQ(stat(at(name).c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    void expectRefusal(const Result& result, int exitCode, const std::string& message) const
    {
        EXPECT_EQ(result.exitCode, exitCode);
        EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
    }

    using Names = std::vector<std::string>;
};

TEST_F(OutputFiles, AreNotReplacedWithoutForce)
{
    writeBytes(at("out.wav"), "precious");
    expectRefusal(tarn({"upmix", "in.wav", "out.wav"}), 64, "out.wav: exists already");
    expectRefusal(tarn({"demo", "out.wav"}), 64, "out.wav: exists already");
    EXPECT_EQ(bytesOf(at("out.wav")), "precious");
    EXPECT_EQ(files(), (Names{"in.wav", "out.wav"}));
}

TEST_F(OutputFiles, ForceReplacesThemAndKeepsTheirMode)
{
    writeBytes(at("out.wav"), "old");
    chmod(at("out.wav").c_str(), 0640);
    ASSERT_EQ(tarn({"upmix", "--force", "in.wav", "out.wav"}).exitCode, 0);
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 9000);
    EXPECT_EQ(modeOf("out.wav"), 0640u);
    EXPECT_EQ(files(), (Names{"in.wav", "out.wav"}));
}

TEST_F(OutputFiles, ForceDropsTheSetIdBits)
{
    writeBytes(at("out.wav"), "old");
    ASSERT_EQ(chmod(at("out.wav").c_str(), 06755), 0);
    ASSERT_EQ(modeOf("out.wav"), 06755u);
    ASSERT_EQ(tarn({"upmix", "--force", "in.wav", "out.wav"}).exitCode, 0);
    EXPECT_EQ(modeOf("out.wav"), 0755u);
}

TEST_F(OutputFiles, ReachTheDiskBeforeTheyGetTheirNamesAndTheFolderAfterwards)
{
    const auto callsOf = [this](const std::string& features, const std::vector<std::string>& arguments) {
        Invocation invocation = onLesserFileSystem(features, {.arguments = arguments});
        invocation.environment.push_back("TARN_CALLS=calls");
        EXPECT_EQ(runIn(directory, invocation).exitCode, 0) << arguments.back();
        std::string calls = bytesOf(at("calls"));
        std::filesystem::remove(at("calls"));
        return calls;
    };
    for (const std::string output : {"out.wav", "out.flac", "out.svg"}) {
        const std::vector<std::string> fresh{output == "out.svg" ? "picture" : "upmix", "in.wav", output};
        const std::vector<std::string> forced{fresh[0], "--force", "in.wav", output};
        EXPECT_EQ(callsOf("tmpfile", fresh), "sync file\nrename\nsync folder\n") << output;
        EXPECT_EQ(callsOf("tmpfile", forced), "sync file\nrename\nsync folder\n") << output;
        std::filesystem::remove(at(output));
        EXPECT_EQ(callsOf("tmpfile,noreplace", fresh), "sync file\nlink\nsync folder\n") << output;
        std::filesystem::remove(at(output));
        EXPECT_EQ(callsOf("tmpfile,noreplace,links", fresh), "sync file\nrename\nsync folder\n") << output;
        std::filesystem::remove(at(output));
        if (!hasFilesWithoutNames(directory)) continue;
        // The first link is a trial.
        EXPECT_EQ(callsOf("", fresh), "link\nsync file\nlink\nsync folder\n") << output;
        EXPECT_EQ(callsOf("", forced), "link\nsync file\nlink\nrename\nsync folder\n") << output;
    }
}

TEST_F(OutputFiles, AreWrittenOnEveryFileSystem)
{
    ASSERT_EQ(tarn({"upmix", "in.wav", "expected.wav"}).exitCode, 0);
    for (const std::string features : {"", "linkat", "tmpfile", "tmpfile,noreplace", "tmpfile,noreplace,links"}) {
        for (const std::string option : {"--quiet", "--force", "--force", "--loudness-match"}) {
            if (option == "--loudness-match") std::filesystem::remove(at("out.wav"));
            const Result result = tarnOnLesserFileSystem(features, {"upmix", option, "in.wav", "out.wav"});
            EXPECT_EQ(result.exitCode, 0) << result.errors;
            EXPECT_EQ(modeOf("out.wav"), modeOf("expected.wav")) << features;
            if (option != "--loudness-match") {
                EXPECT_TRUE(bytesOf(at("out.wav")) == bytesOf(at("expected.wav"))) << features;
            }
            EXPECT_EQ(files(), (Names{"expected.wav", "in.wav", "out.wav"})) << features << ' ' << option;
        }
        expectRefusal(tarnOnLesserFileSystem(features, {"upmix", "in.wav", "out.wav"}), 64, "exists already");
        std::filesystem::remove(at("out.wav"));
        Invocation piped = onLesserFileSystem(features, {.arguments = {"upmix", "--quiet", "-", "out.wav"}});
        piped.input = bytesOf(at("in.wav"));
        piped.environment.push_back("TMPDIR=" + directory.string());
        EXPECT_EQ(runIn(directory, piped).exitCode, 0);
        EXPECT_EQ(files(), (Names{"expected.wav", "in.wav", "out.wav"})) << features;
        std::filesystem::remove(at("out.wav"));
    }
}

TEST_F(OutputFiles, FailedForcedRunLeavesThemUnchanged)
{
    writeBytes(at("out.wav"), "precious");
    std::filesystem::resize_file(at("in.wav"), 5000);
    expectRefusal(tarn({"upmix", "--force", "--strict", "in.wav", "out.wav"}), 65, "is cut short");
    EXPECT_EQ(bytesOf(at("out.wav")), "precious");
    EXPECT_EQ(files(), (Names{"in.wav", "out.wav"}));
}

TEST_F(OutputFiles, ModeFollowsTheUmask)
{
    ASSERT_EQ(shell("umask 027; \"$TARN\" upmix in.wav out.wav").exitCode, 0);
    EXPECT_EQ(modeOf("out.wav"), 0640u);
}

TEST_F(OutputFiles, InputIsRefusedAsOutput)
{
    const std::string before = bytesOf(at("in.wav"));
    std::filesystem::create_hard_link(at("in.wav"), at("hard.wav"));
    std::filesystem::create_symlink("in.wav", at("soft.wav"));
    for (const std::string name : {"in.wav", "hard.wav", "soft.wav", "./in.wav"}) {
        expectRefusal(tarn({"upmix", "in.wav", name}), 64, name + ": is the input file");
        expectRefusal(tarn({"upmix", "--force", "in.wav", name}), 64, name + ": is the input file");
    }
    const Result piped = runIn(
        directory, {.arguments = {"upmix", "--force", "--raw", "48000:16", "-", "in.wav"}, .inputFile = at("in.wav")});
    expectRefusal(piped, 64, "in.wav: is the input file");
    EXPECT_EQ(bytesOf(at("in.wav")), before);
    EXPECT_EQ(files(), (Names{"hard.wav", "in.wav", "soft.wav"}));
}

TEST_F(OutputFiles, DevicesAndDirectoriesAreRefused)
{
    std::filesystem::create_symlink("/dev/null", at("null.wav"));
    std::filesystem::create_directory(at("folder.wav"));
    std::filesystem::create_symlink("nowhere", at("broken.wav"));
    ASSERT_EQ(mkfifo(at("pipe.wav").c_str(), 0600), 0);
    for (const std::string name : {"/dev/null", "null.wav", "pipe.wav"})
        expectRefusal(tarn({"upmix", "--force", "in.wav", name}), 73,
                      name + ": is a device or a pipe, which can only receive raw PCM; type: tarn upmix in.wav - > " +
                          name + "\n");
    EXPECT_EQ(shell("\"$TARN\" upmix in.wav - > /dev/null").exitCode, 0);
    std::filesystem::remove(at("pipe.wav"));
    expectRefusal(tarn({"upmix", "--force", "in.wav", "folder.wav"}), 64, "folder.wav: is a folder; type: ");
    std::filesystem::create_directories(at("out/in.wav-3.0.wav"));
    expectRefusal(tarn({"upmix", "--force", "--output-dir", "out", "in.wav"}), 73,
                  "out/in.wav-3.0.wav: exists and is not a regular file");
    std::filesystem::remove_all(at("out"));
    expectRefusal(tarn({"upmix", "--force", "in.wav", "broken.wav"}), 73, "is a broken symbolic link");
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    EXPECT_EQ(files(), (Names{"broken.wav", "folder.wav", "in.wav", "null.wav"}));
}

TEST_F(OutputFiles, LinkTargetIsReplacedAndTheLinkStays)
{
    std::filesystem::create_directory(at("folder"));
    writeBytes(at("folder/real.wav"), "old");
    std::filesystem::create_symlink("folder/real.wav", at("link.wav"));
    ASSERT_EQ(tarn({"upmix", "--force", "in.wav", "link.wav"}).exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(at("link.wav")));
    EXPECT_EQ(readAudio(at("folder/real.wav")).info.frames, 9000);
    EXPECT_EQ(files(), (Names{"folder", "in.wav", "link.wav"}));
}

TEST_F(OutputFiles, FileSizeLimitIsReportedAndLeavesNoFile)
{
    // With a limit of 1 or 8 blocks of 512 bytes, writing fails, or closing in the case of a short FLAC file.
    writeAudio(at("short.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(3000, 16));
    for (const std::string line :
         {"ulimit -f 8; \"$TARN\" upmix in.wav out.wav", "ulimit -f 8; \"$TARN\" upmix in.wav out.flac",
          "ulimit -f 1; \"$TARN\" upmix short.wav out.flac", "ulimit -f 1; \"$TARN\" upmix short.wav out.wav",
          "ulimit -f 0; \"$TARN\" upmix in.wav out.wav"}) {
        const Result result = shell(line);
        expectRefusal(
            result, 74,
            "writing failed: File too large; no output was left; raise the limit of the file size (ulimit -f)" +
                std::string(line.ends_with(".wav") ? ", or write a .flac file\n" : "\n"));
        EXPECT_EQ(files(), (Names{"in.wav", "short.wav"})) << line;
    }
}

TEST_F(OutputFiles, AdviceNamesTheLimitOfTheProcess)
{
    const std::string sizeAdvice = "File too large; raise the limit of the file size (ulimit -f)";
    for (const auto& [line, exitCode, advice] : std::vector<std::tuple<std::string, int, std::string>>{
             {"ulimit -f 8; \"$TARN\" upmix --loudness-match in.wav out.wav", 74,
              sizeAdvice + ", or leave out --loudness-match\n"},
             {"ulimit -f 8; cat in.wav | \"$TARN\" upmix - out.wav", 74,
              sizeAdvice + ", or name a file instead of the pipe\n"},
             {"ulimit -f 8; \"$TARN\" upmix in.wav - >standard-output", 74, sizeAdvice + "\n"}}) {
        SCOPED_TRACE(line);
        expectRefusal(shell(line), exitCode, advice);
        std::filesystem::remove(at("standard-output"));
        EXPECT_EQ(files(), (Names{"in.wav"}));
    }
    for (const std::string line :
         {"ulimit -f 8; \"$TARN\" picture in.wav out.png", "ulimit -f 8; \"$TARN\" report -o out.html in.wav"}) {
        expectRefusal(
            shell(line), 74,
            "writing failed: File too large; no output was left; raise the limit of the file size (ulimit -f)\n");
        EXPECT_EQ(files(), (Names{"in.wav"}));
    }
}

TEST_F(OutputFiles, AdviceNamesTheLimitOfOpenFiles)
{
    if (TARN_INSTRUMENTED) GTEST_SKIP() << "sanitizers open files themselves";
    const std::string countAdvice = "Too many open files; raise the limit of open files (ulimit -n)";
    // Limits of open files count those that the tests inherit, which are closed.
    for (const auto& [line, exitCode, advice] : std::vector<std::tuple<std::string, int, std::string>>{
             {"ulimit -n 5; \"$TARN\" upmix in.wav out.wav", 66, "in.wav: cannot be opened: " + countAdvice + "\n"},
             {"ulimit -n 5; \"$TARN\" info in.wav", 70, "in.wav: cannot start a process: " + countAdvice + "\n"},
             {"ulimit -n 4; \"$TARN\" info in.wav", 70, "tarn: cannot create a pipe: " + countAdvice + "\n"}}) {
        SCOPED_TRACE(line);
        expectRefusal(shell("exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; " + line), exitCode, advice);
        EXPECT_EQ(files(), (Names{"in.wav"}));
    }
}

TEST_F(OutputFiles, FullDiskIsReportedAndLeavesNoFile)
{
    writeAudio(at("long.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(90000, 16));
    for (const std::string output : {"out.wav", "out.flac"}) {
        expectRefusal(tarnOnFullDisk({"upmix", "long.wav", output}), 74,
                      output + ": writing failed: No space left on device; no output was left; free some space, or "
                               "choose another place\n");
        EXPECT_EQ(files(), (Names{"in.wav", "long.wav"}));
    }
    writeBytes(at("out.wav"), "another file");
    expectRefusal(tarnOnFullDisk({"upmix", "--force", "long.wav", "out.wav"}), 74,
                  "out.wav: writing failed: No space left on device; the existing file is unchanged; free some space, "
                  "or choose another place\n");
    EXPECT_EQ(bytesOf(at("out.wav")), "another file");
}

TEST_F(OutputFiles, ClosedStandardStreamsWriteNoMessagesIntoThem)
{
    ASSERT_EQ(tarn({"upmix", "in.wav", "open.wav"}).exitCode, 0);
    ASSERT_EQ(shell("\"$TARN\" upmix in.wav closed.wav 0<&- 1>&- 2>&-").exitCode, 0);
    EXPECT_TRUE(bytesOf(at("closed.wav")) == bytesOf(at("open.wav")));
    EXPECT_EQ(shell("\"$TARN\" upmix in.wav - 1>&-").exitCode, 74);
    EXPECT_EQ(shell("\"$TARN\" upmix --raw 48000:16 - out.wav 0<&-").exitCode, 74);
    EXPECT_EQ(files(), (Names{"closed.wav", "in.wav", "open.wav"}));
}

// A free number would be that of an output file, which would receive the messages.
TEST_F(OutputFiles, ClosedStandardStreamsArePlaceholders)
{
    for (const std::string stream : {"0", "1", "2"}) {
        // Waits for its input, which the shell holds open for it.
        const std::string input = stream == "0" ? "--remap pipe --layout 7.1-remap in.wav" : "pipe";
        const Result result = shell("mkfifo pipe; \"$TARN\" upmix " + input + " out.wav " + stream +
                                    ">&- & p=$!; for i in $(seq 500); do "
                                    "ls -l /proc/$p/fd 2>/dev/null | grep -q pipe$ && break; sleep 0.01; done; "
                                    "readlink /proc/$p/fd/" +
                                    stream + "; kill $p; wait $p; rm pipe");
        EXPECT_EQ(result.output, "/dev/null\n") << "stream " << stream << " is closed; " << result.errors;
    }
    EXPECT_EQ(files(), (Names{"in.wav"}));
}

TEST_F(OutputFiles, RemapFileIsNeverReplaced)
{
    const std::string matrix = "1 0 0 0\n0 1 0 0\n0 0 1 0\n";
    std::ofstream(at("matrix.wav")) << matrix;
    const Result result =
        tarn({"upmix", "--force", "--layout", "7.1-remap", "--remap", "matrix.wav", "in.wav", "matrix.wav"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.errors.find("matrix.wav: is the remap file"), std::string::npos) << result.errors;
    EXPECT_EQ(bytesOf(at("matrix.wav")), matrix);
}

TEST_F(OutputFiles, AnyFileNameIsWritten)
{
    const std::string longest = std::string(251, 'x') + ".wav";
    std::string longestOfTwoBytes = "x";
    for (int i = 0; i < 125; ++i) longestOfTwoBytes += "\xc3\xa4";
    longestOfTwoBytes += ".wav";
    for (const std::string& name :
         {longest, longestOfTwoBytes, std::string("with blank and 'quote'.WAV"), std::string("\xc3\xa4.flac")}) {
        const Result result = tarn({"upmix", "in.wav", name});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(readAudio(at(name)).info.frames, 9000);
    }
}

TEST_F(OutputFiles, TooLongNamesAreRefusedBeforeProcessing)
{
    // The input of the second run never ends, so the name must be checked before the input is read.
    const std::string tooLong = std::string(252, 'x') + ".wav";
    const std::string message = ": the name has 256 bytes, and . allows names of 255 at most; choose a shorter name";
    expectRefusal(tarn({"upmix", "in.wav", tooLong}), 73, tooLong + message);
    std::filesystem::resize_file(at("in.wav"), 5000);
    expectRefusal(tarn({"upmix", "--raw", "48000:16", "-", tooLong}), 73, tooLong + message);
    EXPECT_EQ(files(), Names{"in.wav"});
}

TEST_F(OutputFiles, TooLongPathsAreRefusedBeforeProcessing)
{
    // With a free name beside it, the longest path has 4095 bytes.
    std::string folder = directory.string();
    while (folder.size() < 3800) folder += "/" + std::string(99, 'd');
    folder += "/" + std::string(4095 - 46 - folder.size(), 'd');
    ASSERT_LT(folder.size() + 1 + 9, 4095u);
    std::filesystem::create_directories(folder);
    for (const std::string features : {"", "tmpfile"}) {
        for (const std::string name : {"out.wav", "o.wav"}) {
            const Result result = tarnOnLesserFileSystem(features, {"upmix", "in.wav", folder + "/" + name});
            EXPECT_EQ(result.exitCode, 0) << result.errors;
            EXPECT_TRUE(std::filesystem::remove(folder + "/" + name));
        }
        const std::string deeper = folder + "/" + std::string(20, 'd');
        std::filesystem::create_directories(deeper);
        const Result refused = tarnOnLesserFileSystem(features, {"upmix", "--raw", "48000:16", "-", deeper + "/o.wav"});
        expectRefusal(refused, 73, "the path is too long for a temporary file beside it; choose a shorter path");
        EXPECT_TRUE(std::filesystem::is_empty(deeper));
        std::filesystem::remove(deeper);
    }
}

TEST_F(OutputFiles, OnlyFilesOfKilledRunsAreRemoved)
{
    writeBytes(at(".song-3.0.wav.tarn-temporary-4194304-a1B2c3"), "half");
    writeBytes(at(".s.tarn-temporary-1-abcdef"), "");
    for (const mode_t mode : {0444u, 0200u}) {
        const std::string name = ".mode" + std::to_string(mode) + ".tarn-temporary-1-abcdef";
        writeBytes(at(name), "complete");
        ASSERT_EQ(chmod(at(name).c_str(), mode), 0);
    }
    writeBytes(at(".a.tarn-temporary-b.tarn-temporary-1-abcdef"), "");
    const Names others{".notes.tarn-backup",
                       ".song.tarn-abcdef",
                       ".song.tarn-temporary-abcdef",
                       ".song.tarn-temporary--abcdef",
                       ".song.tarn-temporary-1-abcde",
                       ".song.tarn-temporary-1-abcdefg",
                       ".song.tarn-temporary-1-abc-ef",
                       ".song.tarn-temporary-1-abcdef.wav",
                       ".song.tarn-temporary-1a-abcdef",
                       ".song.tarn-temporary-12abcdef",
                       ".tarn-temporary-1-abcdef",
                       "song.tarn-temporary-1-abcdef"};
    for (const std::string& name : others) writeBytes(at(name), "precious");
    const std::string end = ".tarn-temporary-1-abcdef";
    std::filesystem::create_directory(at(".folder" + end));
    std::filesystem::create_symlink("in.wav", at(".link" + end));
    ASSERT_EQ(mkfifo(at(".pipe" + end).c_str(), 0600), 0);

    Names expected = others;
    for (const std::string& name : {".folder" + end, ".link" + end, ".pipe" + end}) expected.push_back(name);
    for (const char* const name : {"in.wav", "out.wav"}) expected.emplace_back(name);
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(tarn({"upmix", "in.wav", "out.wav"}).exitCode, 0);
    EXPECT_EQ(files(), expected);
}

TEST_F(OutputFiles, WithoutAFreeTemporaryNameAreRefused)
{
    // All random names are equal, and a folder has that name. The number of the process in it is that of the shell.
    for (const std::string features : {"randomness", "randomness,tmpfile", "randomness,linkat"}) {
        const std::string line = "mkdir .out.wav.tarn-temporary-$$-aaaaaa; exec \"" TARN_COMMAND "\" ";
        Invocation shell = onLesserFileSystem(features, {.arguments = {"-c", line + "upmix in.wav out.wav"}});
        shell.program = "/bin/sh";
        expectRefusal(runIn(directory, shell), 73,
                      "tarn: .: has no free name for a temporary file; remove the files with \".tarn-temporary-\" in "
                      "their names, or choose another directory\n");
        ASSERT_EQ(files().size(), 2u) << features;
        std::filesystem::remove(at(files()[0]));
        EXPECT_EQ(files(), (Names{"in.wav"})) << features;
    }
}

TEST_F(OutputFiles, WithoutRandomNumbersAreRefused)
{
    expectRefusal(tarnOnLesserFileSystem("entropy", {"upmix", "in.wav", "out.wav"}), 70,
                  "tarn: the system has no random numbers for the name of a temporary file: Function not implemented; "
                  "allow the system call getrandom\n");
    EXPECT_EQ(files(), (Names{"in.wav"}));
}

TEST_F(OutputFiles, ConcurrentRunsAllWriteTheirFiles)
{
    // Every run searches for stale files while the others create and rename theirs.
    const Result result = shell("for i in $(seq 60); do \"$TARN\" upmix --quiet in.wav out$i.wav & done; wait");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(files().size(), 61u);
}

} // namespace tarn_cli
