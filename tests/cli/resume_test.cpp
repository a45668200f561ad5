// `tarn upmix --resume`: batches that go on where they stopped.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include <sys/stat.h>

namespace tarn_cli
{

namespace
{

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Arguments = std::vector<std::string>;

/// Content and time of a file.
struct Content
{
    std::string bytes;
    fs::file_time_type time;

    bool operator==(const Content&) const = default;
};

using Tree = std::map<std::string, Content>;

Arguments operator+(Arguments first, const Arguments& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

} // namespace

class Resume : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        fs::create_directories(at("music/x/y"));
    }

    void writeStereo(const std::string& name, unsigned seed, std::size_t frames = 5000) const
    {
        writeAudio(at(name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(frames, 16, seed));
    }

    /// A tree of three files.
    void writeTree() const
    {
        writeStereo("music/a.wav", 1);
        writeStereo("music/x/b.wav", 2);
        writeStereo("music/x/y/c.wav", 3);
    }

    Result resume(const Arguments& more = {}) const
    {
        return tarn(Arguments{"upmix", "--recursive", "--resume", "--output-dir", "out", "music"} + more);
    }

    /// Inputs that a run upmixed, and did not skip.
    std::vector<std::string> upmixed(const Arguments& more = {}) const
    {
        const Result result = resume(Arguments{"--json"} + more);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        std::vector<std::string> names;
        const Json report = Json::parse(result.output);
        std::size_t skipped = 0;
        for (const Json& file : report["files"]) {
            if (file.contains("skipped")) {
                ++skipped;
            } else {
                names.push_back(file["input"]);
            }
        }
        EXPECT_EQ(report["skipped"], skipped);
        return names;
    }

    /// All files below a folder but the ledger.
    Tree treeOf(const std::string& folder) const
    {
        Tree tree;
        if (!fs::exists(at(folder))) return tree;
        for (const auto& entry : fs::recursive_directory_iterator(at(folder)))
            if (!entry.is_directory() && entry.path().filename() != "tarn-ledger.txt")
                tree[entry.path().lexically_relative(at(folder)).string()] = {bytesOf(entry.path()),
                                                                              entry.last_write_time()};
        return tree;
    }

    std::vector<std::string> ledgerLines() const
    {
        std::istringstream ledger(bytesOf(at("out/tarn-ledger.txt")));
        std::vector<std::string> lines;
        for (std::string line; std::getline(ledger, line);) lines.push_back(line);
        return lines;
    }

    const std::vector<std::string> all{"music/a.wav", "music/x/b.wav", "music/x/y/c.wav"};
    const std::vector<std::string> none{};
};

TEST_F(Resume, SkipsWhatIsDoneAndNamesIt)
{
    writeTree();
    EXPECT_EQ(upmixed(), all);
    const Tree before = treeOf("out");
    EXPECT_EQ(before.size(), 3u);
    EXPECT_EQ(upmixed(), none);
    EXPECT_TRUE(treeOf("out") == before);
    const Result result = resume();
    EXPECT_NE(result.errors.find("tarn: 0 of 3 files upmixed into out\n"
                                 "tarn: 3 files skipped, because they are done already\n"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(ledgerLines().size(), 4u);

    writeStereo("music/new.wav", 4);
    EXPECT_EQ(upmixed(), (std::vector<std::string>{"music/new.wav"}));
}

TEST_F(Resume, ChangedInputsAreUpmixedAgain)
{
    writeTree();
    upmixed();
    writeStereo("music/a.wav", 4, 6000);
    EXPECT_EQ(upmixed(), (std::vector<std::string>{"music/a.wav"}));
    fs::last_write_time(at("music/x/b.wav"), fs::last_write_time(at("music/x/b.wav")) + std::chrono::nanoseconds(1));
    EXPECT_EQ(upmixed(), (std::vector<std::string>{"music/x/b.wav"}));
    EXPECT_EQ(upmixed(), none);
    EXPECT_EQ(readAudio(at("out/a.wav-3.0.wav")).samples.size(), 3u * 6000u);
}

TEST_F(Resume, ChangedOptionsUpmixAgainAndEqualOptionsDoNot)
{
    writeTree();
    upmixed();
    EXPECT_EQ(upmixed({"--preset", "film"}), none);
    EXPECT_EQ(upmixed({"--gain", "3", "--centre", "0"}), none);
    for (const Arguments& options :
         {Arguments{"--centre", "6"}, Arguments{"--bits", "24"}, Arguments{"--mode", "calm"}, Arguments{"--no-limiter"},
          Arguments{"--rate", "96000"}, Arguments{"--bypass"}, Arguments{"--loudness-match"},
          Arguments{"--loudness-match", "--album"}, Arguments{"--no-align"}, Arguments{"--width", "0.5"},
          Arguments{"--bass", "steered"}}) {
        EXPECT_EQ(upmixed(options), all) << options[0];
        const Tree made = treeOf("out");
        EXPECT_EQ(upmixed(options), none) << options[0];
        ASSERT_EQ(
            tarn(Arguments{"upmix", "--recursive", "--output-dir", "fresh", "--force", "music"} + options).exitCode, 0);
        for (const auto& [name, content] : treeOf("fresh")) EXPECT_TRUE(made.at(name).bytes == content.bytes) << name;
    }
    EXPECT_EQ(upmixed({"--layout", "5.1"}), all);
    EXPECT_EQ(treeOf("out").size(), 6u);
}

TEST_F(Resume, ChangedRemapFilesUpmixAgain)
{
    writeTree();
    const Arguments options{"--layout", "7.1-remap", "--remap", at("matrix.txt")};
    writeBytes(at("matrix.txt"), "1 0 0 0\n0 1 0 0\n0 0 0.5 0.5\n");
    EXPECT_EQ(upmixed(options), all);
    writeBytes(at("matrix.txt"), "1 0 0 0 # the same matrix\n0 1 0 0\n0 0 0.5 0.5\n");
    EXPECT_EQ(upmixed(options), none);
    writeBytes(at("matrix.txt"), "1 0 0 0\n0 1 0 0\n0 0 0.5 0.4\n");
    EXPECT_EQ(upmixed(options), all);
}

TEST_F(Resume, MissingOutputsAreMadeAgain)
{
    writeTree();
    upmixed();
    const Tree before = treeOf("out");
    fs::remove(at("out/a.wav-3.0.wav"));
    EXPECT_EQ(upmixed(), (std::vector<std::string>{"music/a.wav"}));
    const Tree after = treeOf("out");
    for (const auto& [name, content] : before) EXPECT_TRUE(after.at(name).bytes == content.bytes) << name;
}

TEST_F(Resume, ChangedOutputsAreKept)
{
    writeTree();
    upmixed();
    const std::string output = "out/a.wav-3.0.wav";
    const std::string made = bytesOf(at(output));
    const std::string refusal = "tarn: " + output +
                                ": exists already, and out/tarn-ledger.txt lists it with another size or time; add "
                                "--skip-existing to keep it if it is complete, or --force to replace it\n";
    // Changed, touched, exchanged for another file, and with other options.
    const std::vector<std::pair<std::string, Arguments>> changes{
        {made + "tag", {}}, {made, {}}, {"precious", {}}, {"precious", {"--centre", "6"}}};
    for (const auto& [content, options] : changes) {
        writeBytes(at(output), content);
        const Result result = resume(options);
        EXPECT_EQ(result.exitCode, 64);
        EXPECT_NE(result.errors.find(refusal), std::string::npos) << result.errors;
        EXPECT_TRUE(bytesOf(at(output)) == content);
    }
    EXPECT_EQ(resume({"--skip-existing"}).exitCode, 64) << "not complete";
    EXPECT_EQ(bytesOf(at(output)), "precious");
    EXPECT_EQ(upmixed({"--force"}), (std::vector<std::string>{"music/a.wav"}));
    EXPECT_TRUE(bytesOf(at(output)) == made);
    EXPECT_EQ(upmixed(), none);

    writeBytes(at(output), made);
    EXPECT_EQ(upmixed({"--skip-existing"}), none) << "complete";
}

TEST_F(Resume, OutputsOfEarlierLinesAreReplaced)
{
    writeTree();
    upmixed();
    fs::copy_file(at("out/a.wav-3.0.wav"), at("first.wav"));
    fs::last_write_time(at("first.wav"), fs::last_write_time(at("out/a.wav-3.0.wav")));
    EXPECT_EQ(upmixed({"--centre", "6"}), all);
    EXPECT_EQ(upmixed({"--centre", "3"}), all);
    fs::rename(at("first.wav"), at("out/a.wav-3.0.wav"));
    EXPECT_EQ(upmixed({"--centre", "3"}), (std::vector<std::string>{"music/a.wav"}));
}

// The state after a kill between the line of the ledger and the new name of the file.
TEST_F(Resume, AnOlderOutputOfTheSameSizeIsNotTakenForTheNewOne)
{
    writeTree();
    upmixed();
    const fs::path output = at("out/a.wav-3.0.wav");
    fs::copy_file(output, at("old.wav"));
    const auto time = fs::last_write_time(output);
    EXPECT_EQ(upmixed({"--centre", "6"}), all);
    const std::string made = bytesOf(output);
    ASSERT_EQ(made.size(), bytesOf(at("old.wav")).size());
    ASSERT_FALSE(made == bytesOf(at("old.wav")));
    fs::copy_file(at("old.wav"), output, fs::copy_options::overwrite_existing);
    fs::last_write_time(output, time);
    EXPECT_EQ(upmixed({"--centre", "6"}), (std::vector<std::string>{"music/a.wav"}));
    EXPECT_TRUE(bytesOf(output) == made);
}

TEST_F(Resume, OutputsThatAreNotListedAreKept)
{
    writeTree();
    fs::create_directories(at("out/x"));
    writeBytes(at("out/x/b.wav-3.0.wav"), "precious");
    const Result result = resume();
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.errors.find("tarn: out/x/b.wav-3.0.wav: exists already, and out/tarn-ledger.txt does not list it; "
                                 "add --skip-existing to keep it if it is complete, or --force to replace it\n"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(bytesOf(at("out/x/b.wav-3.0.wav")), "precious");
    EXPECT_EQ(resume({"--skip-existing"}).exitCode, 64);
    EXPECT_EQ(bytesOf(at("out/x/b.wav-3.0.wav")), "precious");
    EXPECT_EQ(upmixed({"--force"}), (std::vector<std::string>{"music/x/b.wav"}));
    EXPECT_EQ(upmixed({"--force"}), none);
}

TEST_F(Resume, SkipExistingKeepsCompleteOutputsOfRunsWithoutLedger)
{
    writeTree();
    ASSERT_EQ(tarn({"upmix", "--recursive", "--output-dir", "out", "music"}).exitCode, 0);
    EXPECT_FALSE(fs::exists(at("out/tarn-ledger.txt")));
    writeStereo("music/new.wav", 4);
    EXPECT_EQ(upmixed({"--skip-existing"}), (std::vector<std::string>{"music/new.wav"}));
    writeStereo("music/new.wav", 5);
    EXPECT_EQ(upmixed({"--skip-existing"}), (std::vector<std::string>{"music/new.wav"}));
}

TEST_F(Resume, OutputsOfOtherFilesAreNotReplaced)
{
    writeStereo("music/a.wav", 1);
    EXPECT_EQ(upmixed(), (std::vector<std::string>{"music/a.wav"}));
    writeStereo("a.wav", 2, 7000);
    const Result result = tarn({"upmix", "--resume", "--output-dir", "out", "a.wav"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.errors.find("a.wav: would have the same output as " + at("music/a.wav") + ", out/a.wav-3.0.wav"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(upmixed(), none);
}

TEST_F(Resume, AMovedFileIsTheSameFile)
{
    writeTree();
    upmixed();
    fs::rename(at("music"), at("moved"));
    const Result result = tarn({"upmix", "--recursive", "--resume", "--output-dir", "out", "moved"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.errors.find("3 files skipped"), std::string::npos) << result.errors;
}

TEST_F(Resume, TakesNamesOfAnyBytes)
{
    const std::vector<std::string> names{"tab\tand\nline.wav", "100%41.wav", "\xff\xfe.wav", "\xc3\xa9t\xc3\xa9.wav",
                                         "# tarn.wav"};
    for (const std::string& name : names) writeStereo("music/" + name, 1);
    EXPECT_EQ(resume().exitCode, 0);
    EXPECT_EQ(treeOf("out").size(), names.size());
    const Tree before = treeOf("out");
    EXPECT_EQ(ledgerLines().size(), 1 + names.size());
    const Result again = resume();
    EXPECT_NE(again.errors.find("5 files skipped"), std::string::npos) << again.errors;
    EXPECT_TRUE(treeOf("out") == before);
}

TEST_F(Resume, ACutLedgerCostsItsLastLineOnly)
{
    writeTree();
    upmixed();
    const Tree before = treeOf("out");
    const std::string ledger = bytesOf(at("out/tarn-ledger.txt"));
    const std::size_t lastLine = ledger.rfind('\n', ledger.size() - 2) + 1;
    for (std::size_t cut = lastLine; cut < ledger.size(); cut += 37) {
        writeBytes(at("out/tarn-ledger.txt"), ledger.substr(0, cut));
        // A line reaches the disk before its output gets its name.
        fs::remove(at("out/x/y/c.wav-3.0.wav"));
        EXPECT_EQ(upmixed(), (std::vector<std::string>{"music/x/y/c.wav"})) << cut;
        EXPECT_EQ(upmixed(), none) << cut;
        EXPECT_TRUE(treeOf("out").at("x/y/c.wav-3.0.wav").bytes == before.at("x/y/c.wav-3.0.wav").bytes);
    }
    for (const std::size_t cut : {0u, 1u, 20u}) {
        fs::remove_all(at("out"));
        fs::create_directory(at("out"));
        writeBytes(at("out/tarn-ledger.txt"), ledger.substr(0, cut));
        EXPECT_EQ(upmixed(), all) << cut;
        EXPECT_EQ(upmixed(), none) << cut;
    }
}

TEST_F(Resume, DamagedLinesAreIgnored)
{
    writeTree();
    upmixed();
    std::string ledger = bytesOf(at("out/tarn-ledger.txt"));
    ledger[ledger.find("a.wav-3.0.wav")] = 'b';
    writeBytes(at("out/tarn-ledger.txt"), ledger);
    const Result result = resume();
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.errors.find("a.wav-3.0.wav: exists already, and out/tarn-ledger.txt does not list it"),
              std::string::npos)
        << result.errors;
    EXPECT_NE(result.errors.find("2 files skipped"), std::string::npos) << result.errors;
}

TEST_F(Resume, AForeignLedgerIsRefused)
{
    writeTree();
    fs::create_directories(at("out"));
    writeBytes(at("out/tarn-ledger.txt"), "my notes\n");
    const Result result = resume();
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_NE(result.errors.find("out/tarn-ledger.txt: is not a ledger of tarn; move it away"), std::string::npos)
        << result.errors;
    EXPECT_EQ(bytesOf(at("out/tarn-ledger.txt")), "my notes\n");
    EXPECT_TRUE(treeOf("out").empty());
    fs::remove(at("out/tarn-ledger.txt"));
    fs::create_directory(at("out/tarn-ledger.txt"));
    EXPECT_EQ(resume().exitCode, 73);
}

TEST_F(Resume, LossesAreReportedAgain)
{
    writeStereo("music/cut.wav", 1, 100000);
    fs::resize_file(at("music/cut.wav"), 40000);
    EXPECT_EQ(resume().exitCode, 1);
    const Result again = resume({"--json"});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_NE(again.errors.find("music/cut.wav: is cut short"), std::string::npos) << again.errors;
    const Json file = Json::parse(again.output)["files"][0];
    EXPECT_EQ(file["skipped"], true);
    EXPECT_EQ(file["exit_code"], 1);
    EXPECT_GT(file["loss"]["seconds"], 1.0);
    EXPECT_EQ(resume({"--strict"}).exitCode, 65);
    EXPECT_EQ(treeOf("out").size(), 1u);
}

TEST_F(Resume, NeedsAnOutputFolder)
{
    writeTree();
    EXPECT_EQ(tarn({"upmix", "--resume", "music/a.wav", "b.wav"}).exitCode, 64);
    EXPECT_EQ(tarn({"upmix", "--part", "1/2", "music/a.wav", "b.wav"}).exitCode, 64);
}

TEST_F(Resume, AFullDiskKeepsTheLedgerUsable)
{
    writeStereo("music/a.wav", 1);
    writeStereo("music/b.wav", 2, 50000);
    writeStereo("music/c.wav", 3);
    const Arguments arguments{"upmix", "--recursive", "--resume", "--output-dir", "out", "music"};
    const Result full = tarnOnFullDisk(arguments);
    EXPECT_EQ(full.exitCode, 74);
    EXPECT_NE(full.errors.find("1 of 3 files done; music/b.wav is the first that is missing; run again with --resume"),
              std::string::npos)
        << full.errors;
    EXPECT_EQ(upmixed(), (std::vector<std::string>{"music/b.wav", "music/c.wav"}));
}

TEST_F(Resume, LinesOfOtherProcessesStayWithoutLocks)
{
    writeStereo("music/a.wav", 1);
    const Result full = tarnOnSharedLedger({"upmix", "--recursive", "--resume", "--output-dir", "out", "music"});
    EXPECT_EQ(full.exitCode, 74);
    EXPECT_NE(full.errors.find("out/tarn-ledger.txt: cannot be written: No space left on device"), std::string::npos)
        << full.errors;
    EXPECT_TRUE(treeOf("out").empty());
    ASSERT_FALSE(ledgerLines().empty());
    EXPECT_EQ(ledgerLines().back(), "a line of another process");
    EXPECT_EQ(upmixed(), (std::vector<std::string>{"music/a.wav"}));
    EXPECT_EQ(upmixed(), none);
}

TEST_F(Resume, PartsHaveEveryFileOnce)
{
    for (unsigned i = 0; i < 40; ++i) writeStereo("music/x/" + std::to_string(i) + ".wav", 1, 100);
    for (const std::string count : {"1", "2", "7"}) {
        std::set<std::string> seen;
        std::size_t most = 0;
        for (unsigned part = 1; part <= std::stoul(count); ++part) {
            const Result result = tarn({"upmix", "--recursive", "--json", "--output-dir", "parts" + count, "--part",
                                        std::to_string(part) + "/" + count, "music"});
            ASSERT_EQ(result.exitCode, 0) << result.errors;
            const Json files = Json::parse(result.output)["files"];
            most = std::max(most, files.size());
            for (const Json& file : files) EXPECT_TRUE(seen.insert(file["input"]).second) << file;
        }
        EXPECT_EQ(seen.size(), 40u);
        EXPECT_LE(most, 3 * 40 / std::stoul(count));
    }
    for (const std::string wrong : {"0/2", "3/2", "1", "/", "a/b", "-1/2", "1/2x", "1/"})
        EXPECT_EQ(tarn({"upmix", "--output-dir", "out", "--part", wrong, "music/x/1.wav"}).exitCode, 64) << wrong;
}

TEST_F(Resume, ParallelRunsDoNotDamageTheLedger)
{
    constexpr unsigned kRuns = 6;
    for (unsigned i = 0; i < 60; ++i) writeStereo("music/x/" + std::to_string(i) + ".wav", 1, 100);
    const std::string line =
        "for k in 1 2 3 4 5 6; do \"$TARN\" upmix --quiet -r --resume -j 2 --output-dir out --part $k/" +
        std::to_string(kRuns) + " music & pids=\"$pids $!\"; done; for p in $pids; do wait $p || exit; done";
    for (int round = 0; round < 5; ++round) {
        fs::remove_all(at("out"));
        const Result result = shell(line);
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(ledgerLines().size(), 61u);
        EXPECT_EQ(treeOf("out").size(), 60u);
        EXPECT_EQ(upmixed(), none);
    }
}

// Another run can have found the folder when it began, and write into it later.
TEST_F(Resume, FoldersStayForOtherRuns)
{
    fs::create_directories(at("damaged/x"));
    writeBytes(at("damaged/x/a.wav"), "not audio");
    const auto leavesFolder = [this](const Arguments& options) {
        fs::remove_all(at("out"));
        tarn(Arguments{"upmix", "--recursive", "--output-dir", "out", "damaged"} + options);
        return fs::is_directory(at("out/x"));
    };
    EXPECT_FALSE(leavesFolder({}));
    EXPECT_FALSE(leavesFolder({"--part", "1/1"}));
    EXPECT_TRUE(leavesFolder({"--resume"}));
    // The file is in one of the parts.
    EXPECT_TRUE(leavesFolder({"--quiet", "--part", "1/2"}) || leavesFolder({"--quiet", "--part", "2/2"}));
}

/// Batches that are killed.
class KilledResume : public Resume
{
protected:
    static constexpr unsigned kFiles = 16;

    void SetUp() override
    {
        Resume::SetUp();
        for (unsigned i = 0; i < kFiles; ++i)
            writeStereo(std::string("music/") + (i % 3 == 0 ? "x/" : "") + std::to_string(i) + ".wav", i,
                        4000 + 500 * i);
        ASSERT_EQ(tarn({"upmix", "--recursive", "--output-dir", "whole", "music"}).exitCode, 0);
        whole = treeOf("whole");
        ASSERT_EQ(whole.size(), kFiles);
    }

    /// Compares all outputs with complete ones, and with those after the round before.
    void expectNothingHalfDoneOrDoneTwice()
    {
        Tree now = treeOf("out");
        std::erase_if(now, [](const auto& file) { return file.first.find(".tarn-temporary-") != std::string::npos; });
        for (const auto& [name, content] : now) {
            ASSERT_TRUE(whole.contains(name)) << name;
            EXPECT_TRUE(content.bytes == whole.at(name).bytes) << name << " is half done";
        }
        for (const auto& [name, content] : last) {
            ASSERT_TRUE(now.contains(name)) << name << " is lost";
            EXPECT_TRUE(content == now.at(name)) << name << " is done twice";
        }
        last = now;
    }

    /// Runs to the end, compares, and begins again.
    void finish()
    {
        const Result result = resume({"-j", "2"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        expectNothingHalfDoneOrDoneTwice();
        EXPECT_EQ(treeOf("out").size(), kFiles) << "a temporary file is left";
        EXPECT_EQ(upmixed(), none);
        fs::remove_all(at("out"));
        last.clear();
    }

    Tree whole; ///< what an undisturbed run makes
    Tree last;  ///< outputs after the last round
    std::mt19937 random{20260517};
};

TEST_F(KilledResume, BatchesKilledAtAnyTimeGoOn)
{
    const auto begin = std::chrono::steady_clock::now();
    fs::remove_all(at("out"));
    ASSERT_EQ(resume({"-j", "2"}).exitCode, 0);
    const auto length = std::chrono::steady_clock::now() - begin;
    fs::remove_all(at("out"));

    int killed = 0;
    for (int round = 0; round < 40 || killed < 20; ++round) {
        ASSERT_LT(round, 400) << "only " << killed << " runs could be killed";
        const auto delay = length / 3 * (random() % 1000) / 1000;
        const int null = 2;
        Result result;
        {
            Process process(
                {.arguments = {"upmix", "-r", "--quiet", "--resume", "-j", "2", "--output-dir", "out", "music"}},
                directory, 0, null, null);
            std::this_thread::sleep_for(delay);
            process.signal(SIGKILL);
            process.wait(result);
        }
        killed += result.signalNumber == SIGKILL ? 1 : 0;
        // Its processes end with it, but not at the same moment.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        expectNothingHalfDoneOrDoneTwice();
        if (last.size() == kFiles) finish();
    }
    finish();
}

TEST_F(KilledResume, KilledWorkersAreReportedAndTheirFilesDoneNextTime)
{
    // Tries until a worker runs, so that nearly every run has one that is killed. The leak check at the end of a
    // sanitizer build is a child too; its parent would wait forever.
    const std::string line =
        "ASAN_OPTIONS=$ASAN_OPTIONS:detect_leaks=0 \"$TARN\" upmix -r --resume -j 2 --output-dir out music & p=$!; "
        "sleep 0.0$DELAY; "
        "for i in $(seq 100); do kill -KILL $(cat /proc/$p/task/$p/children) 2>/dev/null && break; done; wait $p";
    int killed = 0;
    for (int round = 0; killed < 20; ++round) {
        ASSERT_LT(round, 400) << "only in " << killed << " runs could workers be killed";
        const Result result = shell("DELAY=" + std::to_string(10 + random() % 80) + "; " + line);
        const bool isFailed = result.errors.find("the process that worked on it was killed") != std::string::npos;
        EXPECT_EQ(result.exitCode, isFailed ? 70 : 0) << result.errors;
        killed += isFailed ? 1 : 0;
        expectNothingHalfDoneOrDoneTwice();
        if (last.size() == kFiles) finish();
    }
    finish();
}

} // namespace tarn_cli
