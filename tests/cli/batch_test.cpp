// `tarn upmix --output-dir`: many files into a directory.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <nlohmann/json.hpp>

#include <algorithm>

#include <sys/stat.h>

namespace tarn_cli
{

namespace
{

using Json = nlohmann::json;
using Names = std::vector<std::string>;

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

} // namespace

class Batch : public CommandTest
{
protected:
    void writeStereo(const std::string& name, unsigned seed) const
    {
        writeAudio(at(name), kWave16, 48000, 2, stereoNoise(9000 + 100 * seed, 16, seed));
    }

    Names filesIn(const std::string& folder) const
    {
        Names names;
        for (const auto& entry : std::filesystem::directory_iterator(at(folder)))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    /// Names of all files below a folder.
    Names treeOf(const std::string& folder) const
    {
        Names names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(at(folder)))
            if (!entry.is_directory()) names.push_back(entry.path().lexically_relative(at(folder)).string());
        std::sort(names.begin(), names.end());
        return names;
    }

    void expectRefusal(const std::vector<std::string>& arguments, int exitCode, const std::string& message) const
    {
        const Names before = files();
        const Result result = tarn(arguments);
        EXPECT_EQ(result.exitCode, exitCode);
        EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
        EXPECT_EQ(files(), before);
    }
};

TEST_F(Batch, OutputsEqualSingleRunsForAnyNumberOfJobs)
{
    std::vector<std::string> inputs;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        inputs.push_back("in" + std::to_string(seed) + ".wav");
        writeStereo(inputs.back(), seed);
    }
    for (const std::string jobs : {"1", "2", "5", "64"}) {
        std::vector<std::string> arguments{"upmix", "--output-dir", "out/" + jobs, "-j", jobs, "--layout", "5.1"};
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        const Result result = tarn(arguments);
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_NE(result.errors.find("tarn: 6 of 6 files upmixed into out/" + jobs + "\n"), std::string::npos)
            << result.errors;
        EXPECT_EQ(filesIn("out/" + jobs).size(), 6u);
        for (unsigned seed = 1; seed <= 6; ++seed) {
            const Samples stereo = stereoNoise(9000 + 100 * seed, 16, seed);
            EXPECT_TRUE(readAudio(at("out/" + jobs + "/in" + std::to_string(seed) + ".wav-5.1.wav")).samples ==
                        engineOutput(stereo, {.layout = "5.1"}));
        }
    }
}

TEST_F(Batch, ContinuesAfterAFailedFileAndReportsIt)
{
    writeStereo("a.wav", 1);
    writeBytes(at("text.wav"), "This is no audio, but it is long enough for a header of some kind.\n");
    writeStereo("b.wav", 2);
    for (const std::string jobs : {"1", "2"}) {
        const Result result = tarn(
            {"upmix", "--output-dir", "out" + jobs, "-j", jobs, "--json", "a.wav", "text.wav", "missing.wav", "b.wav"});
        EXPECT_EQ(result.exitCode, 65);
        EXPECT_NE(result.errors.find("tarn: text.wav: is not an audio file"), std::string::npos) << result.errors;
        const std::string summary =
            "tarn: 2 of 4 files upmixed into out" + jobs + "\ntarn: 2 files failed, listed above\n";
        EXPECT_TRUE(result.errors.ends_with(summary)) << result.errors;
        const std::size_t first = result.errors.find("missing.wav");
        EXPECT_EQ(result.errors.find("missing.wav", first + 1), std::string::npos) << result.errors;
        EXPECT_EQ(filesIn("out" + jobs), (Names{"a.wav-3.0.wav", "b.wav-3.0.wav"}));

        const Json report = Json::parse(result.output);
        EXPECT_EQ(report["failed"], 2);
        ASSERT_EQ(report["files"].size(), 4u);
        EXPECT_EQ(report["files"][0]["frames"], 9100);
        EXPECT_EQ(report["files"][1]["exit_code"], 65);
        EXPECT_EQ(report["files"][2]["exit_code"], 66);
        EXPECT_EQ(report["files"][3]["output"], "out" + jobs + "/b.wav-3.0.wav");
    }
}

TEST_F(Batch, SummaryCountsLossesAndQuotesTheFolder)
{
    writeStereo("a.wav", 1);
    writeStereo("cut.wav", 2);
    std::filesystem::resize_file(at("cut.wav"), 20000);
    std::filesystem::create_directory(at("my out"));
    writeStereo("it's (live).wav", 3);
    writeBytes(at("my out/it's (live).wav-3.0.wav"), "precious");
    const Result result = tarn({"upmix", "--output-dir", "my out", "a.wav", "cut.wav", "it's (live).wav"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_TRUE(result.errors.ends_with("\ntarn: 2 of 3 files upmixed into 'my out'\n"
                                        "tarn: 1 file with losses, listed above\n"
                                        "tarn: 1 file failed, listed above\n"))
        << result.errors;
    EXPECT_NE(result.errors.find("tarn: my out/it's (live).wav-3.0.wav: exists already; add --skip-existing to keep "
                                 "complete outputs, or --force to replace them\n"),
              std::string::npos)
        << result.errors;
    EXPECT_NE(result.errors.find("tarn: cut.wav: is cut short or damaged: "), std::string::npos) << result.errors;
    EXPECT_EQ(tarn({"upmix", "--quiet", "--output-dir", "out", "a.wav"}).errors, "");
}

TEST_F(Batch, FileCounterIsShownOnATerminalOnly)
{
    std::filesystem::create_directory(at("a folder"));
    const std::string longName = "a folder/" + std::string(60, 'x') + ".wav";
    writeStereo(longName, 1);
    writeStereo("b.wav", 2);
    const std::string arguments = "--force --output-dir out '" + longName + "' b.wav";
    const auto onTerminal = [&](const std::string& options) {
        const std::string line = "'" TARN_COMMAND "' upmix " + options + " " + arguments;
        return runIn(directory, {.arguments = {"-qec", line, "/dev/null"}, .program = "script"});
    };
    const std::string wipe = "\r\033[K";
    for (const std::string jobs : {"1", "2"}) {
        const Result shown = onTerminal("-j " + jobs);
        EXPECT_EQ(shown.exitCode, 0);
        const std::string first = wipe + "1 of 2: ..." + std::string(43, 'x') + ".wav";
        EXPECT_NE(shown.output.find(first), std::string::npos) << shown.output;
        EXPECT_NE(shown.output.find(wipe + "2 of 2: b.wav"), std::string::npos) << shown.output;
        // The display is erased before a note and at the end.
        EXPECT_TRUE(shown.output.ends_with(wipe + "tarn: 2 of 2 files upmixed into out\r\n")) << shown.output;
        EXPECT_EQ(shown.output.find(".wavtarn:"), std::string::npos) << shown.output;
        EXPECT_EQ(shown.output.find("upmixing ["), std::string::npos) << shown.output;
    }
    EXPECT_EQ(onTerminal("--quiet").output, "");
    EXPECT_EQ(shell("\"$TARN\" upmix " + arguments).errors.find("1 of 2"), std::string::npos);
}

TEST_F(Batch, StopsWhenTheDiskIsFull)
{
    writeStereo("a.wav", 1);
    Names inputs{"a.wav"};
    for (const std::string name : {"b.wav", "c.wav", "d.wav", "e.wav", "f.wav"}) {
        writeAudio(at(name), kWave16, 48000, 2, stereoNoise(90000, 16));
        inputs.push_back(name);
    }
    for (const std::string format : {"wav", "flac"}) {
        std::vector<std::string> arguments{"upmix", "--json", "--format", format, "--output-dir", "out-" + format};
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        const std::string end =
            "tarn: stopped, because no output can be written: 1 of 6 files done; b.wav is the first "
            "that is missing; run again with --skip-existing\n";
        const Result result = tarnOnFullDisk(arguments);
        EXPECT_EQ(result.exitCode, 74);
        EXPECT_TRUE(result.errors.ends_with("tarn: 1 file failed, listed above\n" + end)) << result.errors;
        EXPECT_NE(result.errors.find("b.wav-3.0." + format + ": writing failed: No space left on device"),
                  std::string::npos)
            << result.errors;
        EXPECT_EQ(filesIn("out-" + format), (Names{"a.wav-3.0." + format}));
        const Json report = Json::parse(result.output);
        EXPECT_EQ(report["failed"], 1);
        EXPECT_EQ(report["not_tried"], 4);
        ASSERT_EQ(report["files"].size(), 6u);
        EXPECT_EQ(report["files"][5], (Json{{"input", "f.wav"}, {"not_tried", true}}));

        arguments.insert(arguments.begin() + 1, {"--skip-existing", "--quiet", "-j", "2"});
        const Result two = tarnOnFullDisk(arguments);
        EXPECT_EQ(two.exitCode, 74);
        EXPECT_TRUE(two.errors.ends_with(end)) << two.errors;
        EXPECT_GE(Json::parse(two.output)["not_tried"], 2);
    }
}

TEST_F(Batch, StopsWhenTheFolderIsNotWritable)
{
    for (const std::string name : {"a.wav", "b.wav", "c.wav"}) writeStereo(name, 1);
    const Result result = tarn({"upmix", "--quiet", "--output-dir", "/proc", "a.wav", "b.wav", "c.wav"});
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_EQ(
        result.errors,
        "tarn: /proc/a.wav-3.0.wav: cannot create a file in /proc: No such file or directory; choose a directory that "
        "exists and that you may write to\n"
        "tarn: stopped, because no output can be written: 0 of 3 files done; a.wav is the first that is missing; "
        "run again with --skip-existing\n");
}

TEST_F(Batch, NonUtf8NamesAreReportedExactly)
{
    // Latin-1, and malformed UTF-8: an overlong slash, half a surrogate pair, a truncated character.
    const std::string bad = "gr\xfc\xdf %~\xc0\xaf\xed\xa0\x80\xe2\x82";
    const std::string badPercent = "gr%FC%DF%20%25~%C0%AF%ED%A0%80%E2%82";
    writeStereo(bad + ".wav", 1);
    writeStereo("gr\xc3\xbc\xc3\x9f.wav", 2);
    const Result result =
        tarn({"upmix", "--json", "--output-dir", "out", bad + ".wav", "gr\xc3\xbc\xc3\x9f.wav", "\xff"});
    EXPECT_EQ(result.exitCode, 66);
    const Json batch = Json::parse(result.output)["files"];
    ASSERT_EQ(batch.size(), 3u);
    EXPECT_EQ(batch[0]["input_percent"], badPercent + ".wav");
    EXPECT_EQ(batch[0]["output_percent"], "out/" + badPercent + ".wav-3.0.wav");
    EXPECT_EQ(batch[0]["input"].get<std::string>().substr(0, 5), "gr\xef\xbf\xbd");
    EXPECT_EQ(batch[1]["input"], "gr\xc3\xbc\xc3\x9f.wav");
    EXPECT_FALSE(batch[1].contains("input_percent"));
    EXPECT_FALSE(batch[1].contains("output_percent"));
    EXPECT_EQ(batch[2]["input_percent"], "%FF");
    EXPECT_EQ(batch[2]["exit_code"], 66);

    const Json single = Json::parse(tarn({"upmix", "--json", bad + ".wav", "out.wav"}).output);
    EXPECT_EQ(single["input_percent"], badPercent + ".wav");
    EXPECT_FALSE(single.contains("output_percent"));
    const Json info = Json::parse(tarn({"info", "--json", bad + ".wav", "\xff"}).output)["files"];
    EXPECT_EQ(info[0]["input_percent"], badPercent + ".wav");
    EXPECT_EQ(info[1]["input_percent"], "%FF");
}

TEST_F(Batch, CrashFailsOneFileOnly)
{
    const Names inputs{"a.wav", "abort.wav", "trap.wav", "b.wav", "exit.wav", "kill.wav", "c.wav"};
    for (std::size_t i = 0; i < inputs.size(); ++i) writeStereo(inputs[i], static_cast<unsigned>(i));
    for (const std::string jobs : {"1", "3"}) {
        std::vector<std::string> arguments{"upmix", "--json", "--output-dir", "out" + jobs, "-j", jobs};
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        const Result result = tarnWithCrashes(arguments);
        EXPECT_EQ(result.exitCode, 70);
        const std::string rest = "; the other files are not affected; ";
        for (const std::string& message :
             {"tarn: abort.wav: the decoder or encoder crashed (signal 6, Aborted)" + rest +
                  "please report this file\n",
              "tarn: trap.wav: the decoder or encoder crashed (signal 4, Illegal instruction)" + rest,
              "tarn: exit.wav: the decoder or encoder ended the process (exit code 3)" + rest,
              "tarn: kill.wav: the process that worked on it was killed (signal 9, Killed)" + rest,
              "tarn: 3 of 7 files upmixed into out" + jobs + "\ntarn: 4 files failed, listed above\n"})
            EXPECT_NE(result.errors.find(message), std::string::npos) << message << result.errors;

        const Json report = Json::parse(result.output);
        EXPECT_EQ(report["failed"], 4);
        ASSERT_EQ(report["files"].size(), inputs.size());
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            const Json& file = report["files"][i];
            EXPECT_EQ(file["input"], inputs[i]);
            const bool crashes = inputs[i].size() > 5;
            EXPECT_EQ(file.contains("exit_code"), crashes);
            EXPECT_EQ(file.value("exit_code", 0), crashes ? 70 : 0);
        }
        EXPECT_EQ(filesIn("out" + jobs), (Names{"a.wav-3.0.wav", "b.wav-3.0.wav", "c.wav-3.0.wav"}));
        for (const std::string name : {"a", "b", "c"})
            EXPECT_GE(readAudio(at("out" + jobs + "/" + name + ".wav-3.0.wav")).info.frames, 9000);
    }
}

TEST_F(Batch, RemovesTemporaryFilesOfAKilledRun)
{
    writeStereo("a.wav", 1);
    std::filesystem::create_directory(at("out"));
    writeBytes(at("out/.a.wav-3.0.wav.tarn-temporary-1-abcdef"), "half");
    writeBytes(at(".a.wav-3.0.wav.tarn-temporary-1-abcdef"), "half, in a directory that is not written to");
    // The removal does not depend on a successful write.
    EXPECT_EQ(tarn({"upmix", "--output-dir", "out", "missing.wav"}).exitCode, 66);
    EXPECT_EQ(filesIn("out"), Names{});
    EXPECT_EQ(files(), (Names{".a.wav-3.0.wav.tarn-temporary-1-abcdef", "a.wav", "out"}));
}

TEST_F(Batch, TooLongNameFailsOneFileOnly)
{
    writeStereo("a.wav", 1);
    const std::string longName = std::string(247, 'x');
    writeStereo(longName + ".wav", 2);
    const Result result = tarn({"upmix", "--output-dir", "out", longName + ".wav", "a.wav"});
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_NE(
        result.errors.find(longName + ".wav-3.0.wav: the name has 259 bytes, and out allows names of 255 at most"),
        std::string::npos)
        << result.errors;
    EXPECT_EQ(filesIn("out"), (Names{"a.wav-3.0.wav"}));
}

TEST_F(Batch, FoldersWithoutOutputsAreRemovedIfTheRunCreatedThem)
{
    std::filesystem::create_directories(at("music/a"));
    std::filesystem::create_directory(at("mine"));
    writeBytes(at("music/a/bad.wav"), "no audio");
    writeBytes(at("music/bad.wav"), "no audio");
    EXPECT_EQ(tarn({"upmix", "-r", "--output-dir", "new/deep", "music"}).exitCode, 65);
    EXPECT_FALSE(std::filesystem::exists(at("new")));
    EXPECT_EQ(tarn({"upmix", "-r", "--output-dir", "mine", "music"}).exitCode, 65);
    EXPECT_TRUE(std::filesystem::is_empty(at("mine")));
    writeStereo("music/good.wav", 1);
    EXPECT_EQ(tarn({"upmix", "-r", "--output-dir", "new/deep", "music"}).exitCode, 65);
    EXPECT_EQ(filesIn("new/deep"), Names{"good.wav-3.0.wav"});
}

TEST_F(Batch, OutputDirIsADirectoryEvenForOneFile)
{
    writeStereo("a.wav", 1);
    ASSERT_EQ(tarn({"upmix", "--output-dir", "out", "--format", "flac", "a.wav"}).exitCode, 0);
    EXPECT_EQ(filesIn("out"), (Names{"a.wav-3.0.flac"}));
    EXPECT_EQ(readAudio(at("out/a.wav-3.0.flac")).info.format & SF_FORMAT_TYPEMASK, SF_FORMAT_FLAC);
}

TEST_F(Batch, NoTwoFilesOfAFolderHaveTheSameOutput)
{
    std::filesystem::create_directories(at("music/b"));
    writeStereo("music/song.wav.wav", 1);
    ASSERT_EQ(tarn({"upmix", "-r", "--output-dir", "out", "music"}).exitCode, 0);
    EXPECT_EQ(treeOf("out"), Names{"song.wav.wav-3.0.wav"});

    // New files change no name, and no output of another file counts as theirs.
    unsigned seed = 1;
    for (const std::string name : {"song.flac", "song.ogg", "song.wav", "song", "song.dat", "b/song.wav"})
        writeStereo("music/" + name, name.ends_with("song") || name.ends_with(".dat") ? 1 : ++seed);
    const Result result =
        tarn({"upmix", "-r", "--skip-existing", "--output-dir", "out", "music", "music/song", "music/song.dat"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("1 file skipped"), std::string::npos) << result.errors;
    EXPECT_EQ(treeOf("out"), (Names{"b/song.wav-3.0.wav", "song-3.0.wav", "song.dat-3.0.wav", "song.flac-3.0.wav",
                                    "song.ogg-3.0.wav", "song.wav-3.0.wav", "song.wav.wav-3.0.wav"}));
    EXPECT_EQ(readAudio(at("out/song.flac-3.0.wav")).info.frames, 9200);
    EXPECT_EQ(readAudio(at("out/song.ogg-3.0.wav")).info.frames, 9300);
    EXPECT_EQ(readAudio(at("out/song.wav-3.0.wav")).info.frames, 9400);

    // The names do not depend on the other inputs.
    for (const std::string name : {"music/song.flac", "music/song.wav", "music/song.wav.wav"})
        ASSERT_EQ(tarn({"upmix", "--output-dir", "each", name}).exitCode, 0);
    EXPECT_EQ(filesIn("each"), (Names{"song.flac-3.0.wav", "song.wav-3.0.wav", "song.wav.wav-3.0.wav"}));
}

TEST_F(Batch, OutputsStayWhereTheyAreWhenInputsAreAdded)
{
    for (const std::string folder : {"g1/a", "g2/a"}) std::filesystem::create_directories(at(folder));
    writeStereo("g1/a/x.wav", 1);
    writeStereo("g2/a/y.wav", 2);
    ASSERT_EQ(tarn({"upmix", "-r", "--output-dir", "out", "g1", "g2"}).exitCode, 0);
    EXPECT_EQ(treeOf("out"), (Names{"a/x.wav-3.0.wav", "a/y.wav-3.0.wav"}));

    // Only the file whose output exists in the same run is not upmixed.
    writeStereo("g2/a/x.wav", 3);
    writeStereo("g2/a/z.wav", 4);
    writeStereo("v.wav", 5);
    const Result result =
        tarn({"upmix", "-r", "--skip-existing", "--json", "--output-dir", "out", "g1", "g2", "v.wav"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(
        result.errors.find("tarn: g2/a/x.wav: would have the same output as g1/a/x.wav, out/a/x.wav-3.0.wav; upmix "
                           "it into another --output-dir, or name a folder that contains both files, with "
                           "--recursive\n"),
        std::string::npos)
        << result.errors;
    EXPECT_TRUE(result.errors.ends_with("tarn: 2 of 5 files upmixed into out\n"
                                        "tarn: 2 files skipped, because the output is complete\n"
                                        "tarn: 1 file failed, listed above\n"))
        << result.errors;
    EXPECT_EQ(treeOf("out"), (Names{"a/x.wav-3.0.wav", "a/y.wav-3.0.wav", "a/z.wav-3.0.wav", "v.wav-3.0.wav"}));
    EXPECT_EQ(readAudio(at("out/a/x.wav-3.0.wav")).info.frames, 9100);
    const Json report = Json::parse(result.output);
    EXPECT_EQ(report["failed"], 1);
    EXPECT_EQ(report["files"][1]["input"], "g2/a/x.wav");
    EXPECT_EQ(report["files"][1]["exit_code"], 64);

    // The advice.
    ASSERT_EQ(tarn({"upmix", "--output-dir", "other", "g2/a/x.wav"}).exitCode, 0);
    std::filesystem::create_directory(at("both"));
    for (const std::string folder : {"g1", "g2"}) std::filesystem::rename(at(folder), at("both/" + folder));
    ASSERT_EQ(tarn({"upmix", "-r", "--output-dir", "mirror", "both"}).exitCode, 0);
    EXPECT_EQ(treeOf("mirror"),
              (Names{"g1/a/x.wav-3.0.wav", "g2/a/x.wav-3.0.wav", "g2/a/y.wav-3.0.wav", "g2/a/z.wav-3.0.wav"}));
}

TEST_F(Batch, FileNamedTwiceIsUpmixedOnce)
{
    std::filesystem::create_directories(at("music/b"));
    writeStereo("a.wav", 1);
    writeStereo("music/b/c.wav", 2);
    writeStereo("music/d.wav", 3);
    const Result one = tarn({"upmix", "--output-dir", "one", "a.wav", "./a.wav"});
    EXPECT_EQ(one.exitCode, 0);
    EXPECT_EQ(one.errors.find("tarn: ./a.wav: is named twice and used once\n"), 0u) << one.errors;
    EXPECT_EQ(filesIn("one"), Names{"a.wav-3.0.wav"});

    const Result folders = tarn({"upmix", "-r", "--json", "--output-dir", "out", "music", at("music/d.wav"), "music/b",
                                 "music/../music/b/c.wav"});
    EXPECT_EQ(folders.exitCode, 0);
    EXPECT_EQ(folders.errors.find("tarn: " + at("music/d.wav") + " and 2 more: are named twice and used once\n"), 0u)
        << folders.errors;
    EXPECT_EQ(treeOf("out"), (Names{"b/c.wav-3.0.wav", "d.wav-3.0.wav"}));
    EXPECT_EQ(Json::parse(folders.output)["files"].size(), 2u);
}

TEST_F(Batch, OutputsThatAreInputsAreRefusedBeforeAnythingIsWritten)
{
    writeStereo("a.wav", 1);
    writeStereo("b.wav", 2);
    writeStereo("a.wav-3.0.wav", 3);
    const std::string before = bytesOf(at("a.wav-3.0.wav"));
    expectRefusal({"upmix", "--force", "--output-dir", ".", "a.wav", "a.wav-3.0.wav", "b.wav"}, 64,
                  "tarn: ./a.wav-3.0.wav: would be the output of a.wav and is an input itself\n"
                  "tarn: outputs would replace inputs, so nothing was written; choose another --output-dir\n");
    EXPECT_EQ(bytesOf(at("a.wav-3.0.wav")), before);
}

TEST_F(Batch, RecursiveMirrorsFolders)
{
    for (const std::string folder : {"music/b/deep", "music/.hidden", "music/empty", "elsewhere"})
        std::filesystem::create_directories(at(folder));
    writeStereo("music/b/deep/x.WAV", 1);
    writeStereo("music/b/a.wav", 2);
    writeStereo("music/a.wav", 3);
    writeStereo("music/.hidden/h.wav", 4);
    writeStereo("music/.h.wav", 4);
    writeStereo("elsewhere/e.wav", 5);
    writeBytes(at("music/cover.jpg"), "no audio");
    std::filesystem::create_directory_symlink(at("elsewhere"), at("music/link"));
    std::filesystem::create_symlink(at("elsewhere/e.wav"), at("music/c.wav"));
    ASSERT_EQ(mkfifo(at("music/pipe.wav").c_str(), 0600), 0);

    const Names outputs{"a.wav-3.0.wav", "b/a.wav-3.0.wav", "b/deep/x.WAV-3.0.wav", "c.wav-3.0.wav"};
    for (const std::string name : {"music", "music/", "./music"}) {
        const Result result = tarn({"upmix", "-r", "--json", "--output-dir", "out", "--force", name});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(treeOf("out"), outputs);
        Names order;
        const Json report = Json::parse(result.output);
        for (const Json& file : report["files"]) order.push_back(file["output"]);
        EXPECT_EQ(order,
                  (Names{"out/a.wav-3.0.wav", "out/b/a.wav-3.0.wav", "out/b/deep/x.WAV-3.0.wav", "out/c.wav-3.0.wav"}));
    }
    EXPECT_EQ(readAudio(at("out/b/a.wav-3.0.wav")).info.frames, 9200);

    // The next run does not read outputs inside the folder as inputs.
    for (int run = 0; run < 2; ++run)
        ASSERT_EQ(tarn({"upmix", "-r", "--force", "--output-dir", "music/out", "music"}).exitCode, 0);
    EXPECT_EQ(treeOf("music/out"), outputs);

    // Files and folders can be mixed.
    const Result both = tarn({"upmix", "-r", "--output-dir", "both", "elsewhere/e.wav", "music/b"});
    ASSERT_EQ(both.exitCode, 0) << both.errors;
    EXPECT_EQ(treeOf("both"), (Names{"a.wav-3.0.wav", "deep/x.WAV-3.0.wav", "e.wav-3.0.wav"}));
}

TEST_F(Batch, BrokenLinksAreErrors)
{
    std::filesystem::create_directory(at("music"));
    writeStereo("music/a.wav", 1);
    std::filesystem::create_symlink("gone.flac", at("music/b.flac"));
    std::filesystem::create_symlink("gone.jpg", at("music/b.jpg"));
    const Result result = tarn({"upmix", "-r", "--quiet", "--output-dir", "out", "music"});
    EXPECT_EQ(result.exitCode, 66);
    EXPECT_EQ(result.errors, "tarn: music/b.flac: is a broken symbolic link to gone.flac; restore that file, or remove "
                             "the link\n");
    EXPECT_EQ(filesIn("out"), Names{"a.wav-3.0.wav"});
}

TEST_F(Batch, RecursiveCountsUnreadableFiles)
{
    std::filesystem::create_directories(at("my music/b"));
    writeStereo("my music/a.wav", 1);
    for (const std::string name :
         {"x.m4a", "b/y.M4A", "b/z.wma", "cover.jpg", "a.cue", "a.txt", "film.mp4", "film.ogv", "film.mkv", ".z.wma"})
        writeBytes(at("my music/" + name), "no audio");
    const std::string note = "6 files have a format that only tarn film reads: 2 .m4a, 1 .mkv, 1 .mp4, 1 .ogv, 1 .wma; "
                             "use tarn film, or convert "
                             "with ffmpeg, for example: ffmpeg -i 'my music/b/y.M4A' 'my music/b/y.flac'\n";
    const Result result = tarn({"upmix", "-r", "--output-dir", "out", "my music"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors.find("tarn: " + note), 0u) << result.errors;
    EXPECT_EQ(result.errors.find("cover"), std::string::npos) << result.errors;

    const Result quiet = tarn({"upmix", "-r", "--quiet", "--json", "--force", "--output-dir", "out", "my music"});
    EXPECT_EQ(quiet.errors, "");
    const Json unreadable = Json::parse(quiet.output)["unreadable"];
    ASSERT_EQ(unreadable.size(), 6u);
    EXPECT_EQ(unreadable[0], (Json{{"input", "my music/b/y.M4A"}}));

    std::filesystem::remove(at("my music/a.wav"));
    expectRefusal({"upmix", "-r", "--output-dir", "none", "my music"}, 66,
                  "tarn: my music: contains no audio file; " + note);
    std::filesystem::create_directory(at("ape"));
    writeBytes(at("ape/a.ape"), "");
    expectRefusal({"upmix", "-r", "--output-dir", "none", "ape"}, 66,
                  "ape: contains no audio file; 1 file has a format that only tarn film reads: 1 .ape; use tarn film");
    std::filesystem::create_directory(at("none"));
    expectRefusal({"upmix", "-r", "--output-dir", "other", "none"}, 66,
                  "none: contains no audio file; man tarn-upmix lists");
}

TEST_F(Batch, UnsuitableFoldersAreRefused)
{
    std::filesystem::create_directories(at("music/empty"));
    writeStereo("music/a.wav", 1);
    writeBytes(at("music/empty/text.txt"), "no audio");
    expectRefusal({"upmix", "--output-dir", "out", "music"}, 64, "music: is a folder; add --recursive");
    expectRefusal({"upmix", "-r", "--output-dir", "out", "music", "music/empty"}, 66,
                  "music/empty: contains no audio file");
    expectRefusal({"upmix", "-r", "--output-dir", "music", "music"}, 64, "music: is the --output-dir itself");
    expectRefusal({"upmix", "-r", "music", "out.wav"}, 64, "--output-dir");
    writeBytes(at("file"), "");
    expectRefusal({"upmix", "-r", "--output-dir", "file/out", "music"}, 73, "the directory cannot be created");
}

TEST_F(Batch, ExistingOutputsAreReplacedOnlyWithForce)
{
    writeStereo("a.wav", 1);
    writeStereo("b.wav", 2);
    std::filesystem::create_directory(at("out"));
    writeBytes(at("out/a.wav-3.0.wav"), "precious");
    const Result refused = tarn({"upmix", "--output-dir", "out", "a.wav", "b.wav"});
    EXPECT_EQ(refused.exitCode, 64);
    EXPECT_EQ(bytesOf(at("out/a.wav-3.0.wav")), "precious");
    EXPECT_EQ(filesIn("out"), (Names{"a.wav-3.0.wav", "b.wav-3.0.wav"}));
    EXPECT_EQ(tarn({"upmix", "--force", "--output-dir", "out", "a.wav", "b.wav"}).exitCode, 0);
    EXPECT_EQ(readAudio(at("out/a.wav-3.0.wav")).info.frames, 9100);
}

TEST_F(Batch, ConflictingOptionsAreRefused)
{
    writeStereo("a.wav", 1);
    expectRefusal({"upmix", "a.wav", "b.wav", "c.wav"}, 64, "add --output-dir DIR");
    expectRefusal({"upmix", "-j", "2", "a.wav", "b.wav"}, 64, "--output-dir");
    expectRefusal({"upmix", "--format", "flac", "a.wav", "b.wav"}, 64, "--output-dir");
    expectRefusal({"upmix", "--output-dir", "out", "-j", "0", "a.wav"}, 64, "--jobs");
    expectRefusal({"upmix", "--output-dir", "out", "--format", "mp3", "a.wav"}, 64, "--format");
    expectRefusal({"upmix", "--output-dir", "", "a.wav"}, 64, "--output-dir");
    expectRefusal({"upmix", "--output-dir", "out", "--raw", "48000:16", "a.wav", "-"}, 64, "name files");
    expectRefusal({"upmix", "--output-dir", "a.wav", "a.wav"}, 73, "the directory cannot be created");
}

} // namespace tarn_cli
