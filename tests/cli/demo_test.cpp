#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

namespace tarn_cli
{

namespace
{

/// Share of FL, C, FR in percent, then peak of FL, C, FR in dBFS.
using Row = std::array<double, 6>;

/// The rows of the table by the name of the part.
std::map<std::string, Row> tableOf(const std::string& output)
{
    std::map<std::string, Row> rows;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() < 28 || line.compare(0, 2, "  ") != 0) continue;
        std::istringstream numbers(line.substr(26));
        Row row;
        bool complete = true;
        for (double& number : row) complete = complete && numbers >> number;
        if (complete) rows[line.substr(2, line.find("  ", 2) - 2)] = row;
    }
    return rows;
}

} // namespace

class Demo : public CommandTest
{};

TEST_F(Demo, ShowsEveryPartWhereItBelongs)
{
    const Result result = tarn({"demo"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    auto rows = tableOf(result.output);
    ASSERT_EQ(rows.size(), 6u) << result.output;
    for (const auto& [name, row] : rows) {
        EXPECT_NEAR(row[0] + row[1] + row[2], 100.0, 0.2) << name; // three roundings to a tenth
        for (std::size_t i = 3; i < 6; ++i) EXPECT_LT(row[i], 0.0) << name;
    }
    EXPECT_GT(rows["voice in the middle"][1], 90.0);
    EXPECT_GT(rows["traveller, left third"][0], 50.0);
    EXPECT_GT(rows["traveller, middle third"][1], 50.0);
    EXPECT_GT(rows["traveller, right third"][2], 50.0);
    EXPECT_GT(rows["wide bed"][0] + rows["wide bed"][2], 60.0);
    EXPECT_NE(result.output.find("delay of the engine: 960 frames, 20.0 ms"), std::string::npos) << result.output;
    EXPECT_TRUE(files().empty());
}

TEST_F(Demo, IsTheSameEveryTime)
{
    EXPECT_EQ(tarn({"demo"}).output, tarn({"demo"}).output);
}

TEST_F(Demo, WritesTheSceneWithThePeaksOfItsTable)
{
    const Result result = tarn({"demo", "--layout", "5.1", "scene.flac"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const Audio scene = readAudio(at("scene.flac"));
    EXPECT_EQ(scene.info.channels, 6);
    EXPECT_EQ(scene.info.samplerate, 48000);
    EXPECT_EQ(scene.info.frames, 48000 * 128 / 10);
    EXPECT_EQ(scene.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16);

    // The voice fills the first three seconds; its centre peak in the file is the one in the table.
    std::int64_t peak = 0;
    for (std::size_t i = 0; i < 3 * 48000; ++i) peak = std::max(peak, std::abs(std::int64_t{scene.samples[6 * i + 2]}));
    char expected[16];
    std::snprintf(expected, sizeof expected, "%.1f", 20.0 * std::log10(static_cast<double>(peak) * 0x1p-31));
    EXPECT_EQ(tableOf(result.output)["voice in the middle"][4], std::stod(expected));
    EXPECT_EQ(files(), (std::vector<std::string>{"scene.flac"}));
}

TEST_F(Demo, ReportsAnOutputThatCannotBeWritten)
{
    const Result result = shell("\"$TARN\" demo > /dev/full");
    EXPECT_EQ(result.exitCode, 74);
    EXPECT_NE(result.errors.find("No space left on device"), std::string::npos) << result.errors;
}

} // namespace tarn_cli
