// `tarn demo`: its table and its files.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/open_files.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <tuple>

#include <fcntl.h>
#include <unistd.h>

namespace tarn_cli
{

namespace
{

/// Share of FL, C, FR in percent, then peak of FL, C, FR in dBFS.
using Row = std::array<double, 6>;

/// Rows of the table by source name.
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

TEST_F(Demo, TablePlacesEverySourceCorrectly)
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
    EXPECT_GT(rows["centred voice"][1], 90.0);
    EXPECT_GT(rows["moving source, left"][0], 50.0);
    EXPECT_GT(rows["moving source, centre"][1], 50.0);
    EXPECT_GT(rows["moving source, right"][2], 50.0);
    EXPECT_GT(rows["wide chords"][0] + rows["wide chords"][2], 60.0);
    EXPECT_NE(result.output.find("delay of the filterbank: 960 frames, 20.0 ms, measured; live streams have a "
                                 "latency of 1024 frames"),
              std::string::npos)
        << result.output;
    EXPECT_TRUE(files().empty());
}

TEST_F(Demo, OutputIsReproducible)
{
    EXPECT_EQ(tarn({"demo"}).output, tarn({"demo"}).output);
}

TEST_F(Demo, SceneFileIsTheUpmixOfItsStereoSource)
{
    const Result result = tarn({"demo", "--layout", "5.1", "scene.flac"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const Audio scene = readAudio(at("scene.flac"));
    EXPECT_EQ(scene.info.channels, 6);
    EXPECT_EQ(scene.info.samplerate, 48000);
    EXPECT_EQ(scene.info.frames, 48000 * 128 / 10);
    EXPECT_EQ(scene.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16);

    ASSERT_EQ(tarn({"upmix", "--layout", "5.1", "scene-stereo.flac", "again.flac"}).exitCode, 0);
    EXPECT_EQ(readAudio(at("again.flac")).samples, scene.samples) << "of tarn upmix";

    // The voice occupies the first three seconds. Its centre peak without gain equals that in the table.
    ASSERT_EQ(tarn({"upmix", "--preset", "plain", "scene-stereo.flac", "plain.flac"}).exitCode, 0);
    const Audio plain = readAudio(at("plain.flac"));
    std::int64_t peak = 0;
    for (std::size_t i = 0; i < 3 * 48000; ++i) peak = std::max(peak, std::abs(std::int64_t{plain.samples[3 * i + 2]}));
    char expected[16];
    std::snprintf(expected, sizeof expected, "%.1f", 20.0 * std::log10(static_cast<double>(peak) * 0x1p-31));
    EXPECT_EQ(tableOf(result.output)["centred voice"][4], std::stod(expected));
}

TEST_F(Demo, LayoutsAndPresetsAreThoseOfTheUpmix)
{
    for (const auto& [layout, preset, isStereo] :
         {std::tuple("2.0", "film", true), std::tuple("2.0", "voice", false), std::tuple("7.1", "music", false)}) {
        const Result result = tarn({"demo", "--force", "--layout", layout, "--preset", preset, "scene.wav"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(bytesOf(at("scene.wav")) == bytesOf(at("scene-stereo.wav")), isStereo) << layout << preset;
        EXPECT_EQ(result.output.find("Both files are the same") != std::string::npos, isStereo) << result.output;
        ASSERT_EQ(tarn({"upmix", "--force", "--layout", layout, "--preset", preset, "scene-stereo.wav", "again.wav"})
                      .exitCode,
                  0);
        EXPECT_EQ(readAudio(at("again.wav")).samples, readAudio(at("scene.wav")).samples) << layout << preset;
    }
}

TEST_F(Demo, FilesStateTheirChannels)
{
    for (const auto& [layout, channels, mask] : {std::tuple("3.0", 3, 0x7u), std::tuple("5.1", 6, 0x3fu)}) {
        for (const std::string name : {"scene.wav", "scene.flac"})
            ASSERT_EQ(tarn({"demo", "--force", "--layout", layout, name}).exitCode, 0) << layout;
        const WaveFormat scene = waveFormat(at("scene.wav"));
        EXPECT_EQ(scene.tag, 0xfffe);
        EXPECT_EQ(scene.channels, channels);
        EXPECT_EQ(scene.mask, mask);
        char tag[64];
        std::snprintf(tag, sizeof tag, "WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x%04X", mask);
        EXPECT_NE(bytesOf(at("scene.flac")).find(tag), std::string::npos) << layout;
        for (const std::string name : {"scene.wav", "scene.flac", "scene-stereo.wav", "scene-stereo.flac"})
            EXPECT_EQ(readAudio(at(name)).info.frames, 48000 * 128 / 10) << name << ", " << layout;
    }
    EXPECT_EQ(waveFormat(at("scene-stereo.wav")).mask, 0x3u);
    EXPECT_NE(bytesOf(at("scene-stereo.flac")).find("WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x0003"), std::string::npos);
}

TEST_F(Demo, WritesTheStereoSourceBesideTheScene)
{
    for (const std::string extension : {".wav", ".flac"}) {
        const Result result = tarn({"demo", "scene" + extension});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_NE(result.output.find("scene" + extension + " contains the scene as 3.0, and scene-stereo" + extension +
                                     " its stereo source"),
                  std::string::npos)
            << result.output;
        const Audio stereo = readAudio(at("scene-stereo" + extension));
        EXPECT_EQ(stereo.info.channels, 2);
        EXPECT_EQ(stereo.info.samplerate, 48000);
        EXPECT_EQ(stereo.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16);
        ASSERT_EQ(tarn({"upmix", "scene-stereo" + extension, "again" + extension}).exitCode, 0);
        EXPECT_TRUE(bytesOf(at("again" + extension)) == bytesOf(at("scene" + extension)));
    }
    EXPECT_EQ(files(), (std::vector<std::string>{"again.flac", "again.wav", "scene-stereo.flac", "scene-stereo.wav",
                                                 "scene.flac", "scene.wav"}));
}

TEST_F(Demo, ExistingFileWithoutForceWritesNothing)
{
    for (const std::string existing : {"scene.wav", "scene-stereo.wav"}) {
        writeBytes(at(existing), "precious");
        const Result result = tarn({"demo", "scene.wav"});
        EXPECT_EQ(result.exitCode, 64);
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.errors.find("tarn: " + existing + ": exists already"), std::string::npos) << result.errors;
        EXPECT_EQ(files(), (std::vector<std::string>{existing}));
        EXPECT_EQ(bytesOf(at(existing)), "precious");
        std::filesystem::remove(at(existing));
    }
}

TEST_F(Demo, ForceReplacesBothFiles)
{
    ASSERT_EQ(tarn({"demo", "scene.wav"}).exitCode, 0);
    const std::string scene = bytesOf(at("scene.wav"));
    const std::string stereo = bytesOf(at("scene-stereo.wav"));
    writeBytes(at("scene.wav"), "old");
    writeBytes(at("scene-stereo.wav"), "old");
    ASSERT_EQ(tarn({"demo", "--force", "scene.wav"}).exitCode, 0);
    EXPECT_TRUE(bytesOf(at("scene.wav")) == scene);
    EXPECT_TRUE(bytesOf(at("scene-stereo.wav")) == stereo);
    EXPECT_EQ(files(), (std::vector<std::string>{"scene-stereo.wav", "scene.wav"}));
}

TEST_F(Demo, FullDiskLeavesNeitherFile)
{
    // The limit counts blocks of 512 bytes. The stereo of 2.5 MB fits, the scene does not.
    const Result result = shell("ulimit -f 6000; \"$TARN\" demo scene.wav");
    EXPECT_EQ(result.exitCode, 74);
    EXPECT_NE(result.errors.find("scene.wav: writing failed: File too large"), std::string::npos) << result.errors;
    EXPECT_TRUE(files().empty());

    writeBytes(at("scene.wav"), "precious");
    writeBytes(at("scene-stereo.wav"), "precious, too");
    EXPECT_EQ(shell("ulimit -f 6000; \"$TARN\" demo --force scene.wav").exitCode, 74);
    EXPECT_EQ(bytesOf(at("scene.wav")), "precious");
    EXPECT_EQ(bytesOf(at("scene-stereo.wav")), "precious, too");
    EXPECT_EQ(files(), (std::vector<std::string>{"scene-stereo.wav", "scene.wav"}));
}

TEST_F(Demo, TooLongStereoNameLeavesNeitherFile)
{
    const std::string name = std::string(245, 'x') + ".wav";
    const Result result = tarn({"demo", name});
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_NE(result.errors.find("-stereo.wav: the name has 256 bytes, and . allows names of 255 at most"),
              std::string::npos)
        << result.errors;
    EXPECT_TRUE(files().empty());
}

TEST_F(Demo, RefusesOneFileForBothOutputs)
{
    writeBytes(at("scene.wav"), "precious");
    std::filesystem::create_symlink("scene.wav", at("scene-stereo.wav"));
    const Result result = tarn({"demo", "--force", "scene.wav"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.errors.find("scene-stereo.wav: is the same file as scene.wav"), std::string::npos)
        << result.errors;
    EXPECT_EQ(bytesOf(at("scene.wav")), "precious");
}

TEST_F(Demo, NameTakenByAnotherProgramLeavesNeitherFile)
{
    for (const std::string taken : {"scene.wav", "scene-stereo.wav"}) {
        // The report goes to a full pipe, so the command blocks there with its files created.
        int output[2];
        ASSERT_EQ(pipe2(output, O_CLOEXEC | O_NONBLOCK), 0);
        const std::string filler(4096, 'x');
        while (write(output[1], filler.data(), filler.size()) > 0) {
        }
        for (const int end : output) ASSERT_EQ(fcntl(end, F_SETFL, 0), 0);
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        Process process({.arguments = {"demo", "scene.wav"}}, directory, null, output[1], null);
        close(output[1]);
        close(null);
        ASSERT_TRUE(writesOutputs(process, directory, 2));
        writeBytes(at(taken), "theirs");

        char chunk[65536];
        while (read(output[0], chunk, sizeof chunk) > 0) {
        }
        close(output[0]);
        Result result;
        process.wait(result);
        EXPECT_EQ(result.exitCode, 64);
        EXPECT_EQ(files(), (std::vector<std::string>{taken}));
        EXPECT_EQ(bytesOf(at(taken)), "theirs");
        std::filesystem::remove(at(taken));
    }
}

TEST_F(Demo, UnwritableOutputIsReported)
{
    for (const std::string line : {"\"$TARN\" demo > /dev/full", "\"$TARN\" demo scene.wav > /dev/full"}) {
        const Result result = shell(line);
        EXPECT_EQ(result.exitCode, 74);
        EXPECT_NE(result.errors.find("No space left on device"), std::string::npos) << result.errors;
        EXPECT_TRUE(files().empty());
    }
}

TEST_F(Demo, OptionsOfTheFileNeedAFile)
{
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"--layout", "5.1"}, {"--preset", "voice"}, {"--force"}}) {
        std::vector<std::string> arguments = {"demo"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result result = tarn(arguments);
        EXPECT_EQ(result.exitCode, 64);
        EXPECT_EQ(result.errors, "tarn: " + options[0] +
                                     ": is about the file that is written; name an OUTPUT, such as "
                                     "scene.wav\n");
    }
}

} // namespace tarn_cli
