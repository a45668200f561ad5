// Help texts, version and progress display.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <algorithm>
#include <regex>
#include <sstream>

namespace tarn_cli
{

class Help : public CommandTest
{};

TEST_F(Help, ListsEveryCommandAndExitCode)
{
    const Result result = tarn({"--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* const word : {"upmix", "film", "info", "picture", "report", "meter", "demo", "Example", "\n   0 ",
                                   "\n   1 ", "64", "65", "66", "70", "73", "74"})
        EXPECT_NE(result.output.find(word), std::string::npos) << word;
}

TEST_F(Help, EveryCommandFits80ColumnsAnd24Lines)
{
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{{"--help"},
                                                                                         {"upmix", "--help"},
                                                                                         {"info", "--help"},
                                                                                         {"picture", "--help"},
                                                                                         {"report", "--help"},
                                                                                         {"meter", "--help"},
                                                                                         {"demo", "-h"}}) {
        const std::string text = tarn(command).output;
        EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 24) << text;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
    }
}

TEST_F(Help, HelpAllListsEveryOptionIn80Columns)
{
    const std::string all = tarn({"upmix", "--help-all"}).output;
    const std::string brief = tarn({"upmix", "--help"}).output;
    for (const char* const word :
         {"INPUT",      "OUTPUT",          "--layout",         "--remap",      "--bits",     "--mode",
          "--no-align", "--raw RATE:BITS", "--rate",           "--output-dir", "--format",   "--jobs",
          "--json",     "--gain",          "--loudness-match", "--bypass",     "7.1",        "--force",
          "--quiet",    "--skip-existing", "--recursive",      "--strict",     "960 frames", "--picture"}) {
        EXPECT_NE(all.find(word), std::string::npos) << word;
        EXPECT_NE(brief.find(word), std::string::npos) << word;
    }
    std::istringstream lines(all + tarn({"picture", "--help-all"}).output);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
    for (const char* const word : {"INPUT", "OUTPUT", "--layout", "--preset", "--start", "--length", "--size",
                                   "--theme", "--title", "--raw", "--force", "--quiet"}) {
        EXPECT_NE(tarn({"picture", "--help"}).output.find(word), std::string::npos) << word;
        EXPECT_NE(tarn({"picture", "--help-all"}).output.find(word), std::string::npos) << word;
    }
    for (const char* const word : {"INPUT", "--verbose", "--jobs", "--json", "--quiet"}) {
        EXPECT_NE(tarn({"info", "--help"}).output.find(word), std::string::npos) << word;
        EXPECT_NE(tarn({"info", "--help-all"}).output.find(word), std::string::npos) << word;
    }
}

TEST_F(Help, VersionIsPrinted)
{
    const Result result = tarn({"--version"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(std::regex_match(result.output, std::regex("tarn [0-9]+\\.[0-9]+\\.[0-9]+\n"))) << result.output;
}

TEST_F(Help, WithoutATerminalOnlyTheSummaryIsPrinted)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(72000, 16));
    const Result result = tarn({"upmix", "in.wav", "out.wav"});
    EXPECT_TRUE(std::regex_match(result.errors,
                                 std::regex("tarn: in\\.wav -> out\\.wav: 3\\.0 \\(FL FR FC\\), 48000 Hz, 16 bits, "
                                            "0:01\\.500, limited by up to [0-9.]+ dB for 1\\.5 s, [0-9]+ x real "
                                            "time\n")))
        << result.errors;
    EXPECT_EQ(result.output, "");
}

TEST_F(Help, ProgressBarIsShownOnATerminalUnlessQuiet)
{
    // Long enough for a fast machine to draw the bar before the end.
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 192000, 2, Samples(2 * 192000 * 60));
    const auto onTerminal = [this](const std::string& options, const std::string& setUp = "") {
        return runIn(directory,
                     {.arguments = {"-qec", setUp + "'" TARN_COMMAND "' upmix --force " + options + " in.wav out.wav",
                                    "/dev/null"},
                      .program = "script"});
    };
    const Result shown = onTerminal("");
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_TRUE(std::regex_search(
        shown.output, std::regex("upmixing \\[[#-]{24}\\] +[0-9]+ %  0:[0-9.]+ / 1:00\\.000  [0-9]+ x real time")))
        << shown.output;
    const Result quiet = onTerminal("--quiet");
    EXPECT_EQ(quiet.exitCode, 0);
    EXPECT_EQ(quiet.output, "");

    // A line as wide as the terminal would continue on the next row.
    const std::string narrow = onTerminal("", "stty cols 60; ").output;
    const std::regex line("\r(upmixing[^\r\033]*)\033\\[K");
    std::size_t lines = 0;
    for (std::sregex_iterator found(narrow.begin(), narrow.end(), line), end; found != end; ++found, ++lines)
        EXPECT_LT((*found)[1].length(), 60) << (*found)[1];
    EXPECT_GT(lines, 0u);
}

} // namespace tarn_cli
