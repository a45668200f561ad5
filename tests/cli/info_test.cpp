// `tarn info`: verdicts and figures for synthetic inputs.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <numbers>
#include <random>
#include <tuple>

#include <fcntl.h>
#include <unistd.h>

namespace tarn_cli
{

namespace
{

using Json = nlohmann::json;

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr std::size_t kFrames = 48000;

std::int32_t sample(double value)
{
    return static_cast<std::int32_t>(std::lround(value * 0x7fff)) * 0x10000;
}

/// Stereo white noise with a shared and an independent part.
///
/// shared  gains of the shared noise, left and right
/// own     gains of the independent noise, left and right
Samples noise(double sharedLeft, double sharedRight, double own)
{
    std::mt19937 engine(7);
    std::uniform_real_distribution<double> value(-0.4, 0.4);
    Samples samples;
    for (std::size_t i = 0; i < kFrames; ++i) {
        const double shared = value(engine);
        samples.push_back(sample(sharedLeft * shared + own * value(engine)));
        samples.push_back(sample(sharedRight * shared + own * value(engine)));
    }
    return samples;
}

Samples tone(double hz, double right)
{
    Samples samples;
    for (std::size_t i = 0; i < kFrames; ++i) {
        const double value = 0.5 * std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(i) / 48000.0);
        samples.push_back(sample(value));
        samples.push_back(sample(right * value));
    }
    return samples;
}

} // namespace

class Info : public CommandTest
{
protected:
    /// Writes a sparse AU file of silence at 32 kHz and 16 bits. It uses neither disk space nor memory of the test,
    /// which would count as memory of the command.
    void writeSilence(const std::string& name, std::uintmax_t seconds) const
    {
        using namespace std::string_literals;
        writeBytes(at(name), ".snd\0\0\0\x18\xff\xff\xff\xff\0\0\0\3\0\0\x7d\0\0\0\0\2"s);
        std::filesystem::resize_file(at(name), 24 + seconds * 32000 * 4);
    }

    /// Longer than the command can examine before a signal arrives.
    void writeHours(const std::string& name) const { writeSilence(name, 300 * 3600); }

    /// The --json object of the only input.
    Json infoOf(const std::string& name) const
    {
        const Result result = tarn({"info", "--json", name});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return Json::parse(result.output).at("files").at(0);
    }

    Json infoOf(const Samples& samples) const
    {
        writeAudio(at("in.wav"), kWave16, 48000, 2, samples);
        return infoOf("in.wav");
    }
};

TEST_F(Info, DualMonoGainsNothing)
{
    const Json info = infoOf(noise(1.0, 1.0, 0.0));
    EXPECT_EQ(info["kind"], "dual-mono");
    EXPECT_EQ(info["verdict"],
              "dual mono: both sides are nearly identical, so an upmix moves everything but the bass to "
              "the centre");
    EXPECT_EQ(info["gains"], "no");
    EXPECT_EQ(info["identical"], true);
    EXPECT_EQ(info["overall"]["correlation"], 1.0);
    EXPECT_TRUE(info["overall"]["side_to_mid_db"].is_null());
    for (const Json& band : info["bands"]) EXPECT_EQ(band["correlation"], 1.0) << band;
}

TEST_F(Info, NearDualMonoIsDualMonoButNotIdentical)
{
    const Json info = infoOf(noise(1.0, 1.0, 0.005));
    EXPECT_EQ(info["kind"], "dual-mono");
    EXPECT_EQ(info["identical"], false);
    EXPECT_LT(info["overall"]["side_to_mid_db"], -40.0);
}

TEST_F(Info, IndependentNoiseIsIndependent)
{
    const Json info = infoOf(noise(0.0, 0.0, 1.0));
    EXPECT_EQ(info["kind"], "independent");
    EXPECT_EQ(info["gains"], "little");
    EXPECT_LT(std::abs(info["overall"]["correlation"].get<double>()), 0.02);
    EXPECT_LT(std::abs(info["overall"]["side_to_mid_db"].get<double>()), 0.2);
}

TEST_F(Info, OppositePhaseAdvisesInversion)
{
    const Json info = infoOf(noise(1.0, -1.0, 0.0));
    EXPECT_EQ(info["kind"], "opposite-phase");
    EXPECT_EQ(info["gains"], "no");
    EXPECT_EQ(info["overall"]["correlation"], -1.0);
    for (const Json& band : info["bands"]) EXPECT_EQ(band["correlation"], -1.0) << band;
    EXPECT_NE(tarn({"info", "--verbose", "in.wav"}).output.find("invert it before upmixing"), std::string::npos);
}

TEST_F(Info, OneSidedSourceGainsNothing)
{
    const Json info = infoOf(noise(1.0, 0.0, 0.0));
    EXPECT_EQ(info["kind"], "one-sided");
    EXPECT_EQ(info["gains"], "no");
    EXPECT_TRUE(info["overall"]["correlation"].is_null());
    EXPECT_TRUE(info["overall"]["left_to_right_db"].is_null());
    EXPECT_EQ(info["overall"]["side_to_mid_db"], 0.0);
}

TEST_F(Info, PannedMonoReportsItsPlace)
{
    const Json info = infoOf(noise(1.0, 0.5, 0.0));
    EXPECT_EQ(info["kind"], "panned-mono");
    EXPECT_NEAR(info["overall"]["left_to_right_db"], 6.02, 0.01);
    EXPECT_NEAR(info["overall"]["side_to_mid_db"], 20.0 * std::log10(0.5 / 1.5), 0.01);
}

TEST_F(Info, NoisyMonoIsDualMono)
{
    // Like a mono recording on tape: each channel has a little independent noise.
    const Json info = infoOf(noise(1.0, 1.0, 0.02));
    EXPECT_EQ(info["kind"], "dual-mono");
    EXPECT_FALSE(info["identical"]);
    EXPECT_GT(info["overall"]["side_to_mid_db"], -40.0);
}

TEST_F(Info, DcOffsetIsIgnored)
{
    Samples samples = noise(0.02, -0.02, 0.0);
    for (std::int32_t& value : samples) value += sample(0.2);
    const Json opposite = infoOf(samples);
    EXPECT_EQ(opposite["kind"], "opposite-phase");
    EXPECT_LT(opposite["overall"]["correlation"], -0.99);
    EXPECT_EQ(infoOf(Samples(2 * kFrames, sample(0.2)))["kind"], "silence");
}

TEST_F(Info, SilenceGainsNothing)
{
    const Json info = infoOf(Samples(2 * kFrames));
    EXPECT_EQ(info["kind"], "silence");
    EXPECT_TRUE(info["peak_dbfs"].is_null());
    EXPECT_TRUE(info["overall"]["correlation"].is_null());
    EXPECT_TRUE(info["overall"]["level_dbfs"].is_null());
    EXPECT_TRUE(info["overall"]["side_to_mid_db"].is_null());
    EXPECT_TRUE(info["overall"]["left_to_right_db"].is_null());
    const Result text = tarn({"info", "--verbose", "in.wav"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_NE(text.output.find("silence: there is nothing to upmix"), std::string::npos) << text.output;
}

TEST_F(Info, StereoWithACentredSourceGains)
{
    // Shared and independent noise of equal energy give a correlation of 0.5.
    const Json info = infoOf(noise(0.7, 0.7, 0.7));
    EXPECT_EQ(info["kind"], "stereo");
    EXPECT_EQ(info["gains"], "yes");
    EXPECT_NEAR(info["overall"]["correlation"], 0.5, 0.02);
}

TEST_F(Info, BandsShowSharedAndOppositeSound)
{
    // A shared tone in the octave around 500 Hz and an inverted one around 4 kHz cancel in the overall figure.
    const Samples low = tone(500.0, 1.0);
    const Samples high = tone(4000.0, -1.0);
    Samples both;
    for (std::size_t i = 0; i < low.size(); ++i) both.push_back(low[i] / 2 + high[i] / 2);
    const Json info = infoOf(both);
    EXPECT_LT(std::abs(info["overall"]["correlation"].get<double>()), 0.01);
    EXPECT_EQ(info["kind"], "stereo");
    ASSERT_EQ(info["bands"].size(), 10u);
    for (const Json& band : info["bands"]) {
        EXPECT_EQ(band["opposite_phase"], band["centre_hz"] == 4000.0) << band;
        if (band["centre_hz"] == 500.0) {
            EXPECT_GT(band["correlation"], 0.99);
        }
    }
    EXPECT_NE(tarn({"info", "--verbose", "in.wav"}).output.find("(opposite in the octaves around 4000 Hz)"),
              std::string::npos);
}

TEST_F(Info, BandFiltersPassTheirOctaveAndStopTheSecondNext)
{
    for (const double hz : {62.5, 1000.0, 8000.0}) {
        const Json info = infoOf(tone(hz, 1.0));
        for (const Json& band : info["bands"]) {
            const double level = band["level_dbfs"].is_null() ? -200.0 : band["level_dbfs"].get<double>();
            const double octaves = std::abs(std::log2(band["centre_hz"].get<double>() / hz));
            if (octaves == 0.0) {
                EXPECT_NEAR(level, -9.03, 0.1) << band;
            }
            if (octaves >= 1.0) {
                // Near half the sample rate, the slopes towards lower frequencies are less steep.
                EXPECT_LT(level, -9.03 - (band["centre_hz"] < 16000.0 ? 18.0 : 12.0)) << band;
            }
            if (octaves >= 2.0) {
                EXPECT_LT(level, -9.03 - 32.0) << band;
            }
        }
    }
}

TEST_F(Info, DescribesTheFile)
{
    writeAudio(at("in.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 96000, 2, stereoNoise(12345, 24));
    const Json flac = infoOf("in.flac");
    EXPECT_EQ(flac["input"], "in.flac");
    EXPECT_NE(flac["container"].get<std::string>().find("FLAC"), std::string::npos);
    EXPECT_NE(flac["codec"].get<std::string>().find("24"), std::string::npos);
    EXPECT_EQ(flac["sample_rate"], 96000);
    EXPECT_EQ(flac["bits"], 24);
    EXPECT_EQ(flac["channels"], 2);
    EXPECT_EQ(flac["frames"], 12345);
    EXPECT_EQ(flac["can_be_upmixed"], true);

    writeAudio(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100, 2, stereoNoise(12345, 16));
    const Json ogg = infoOf("in.ogg");
    EXPECT_NE(ogg["codec"].get<std::string>().find("Vorbis"), std::string::npos);
    EXPECT_TRUE(ogg["bits"].is_null());
    EXPECT_EQ(ogg["frames"], 12345);
}

TEST_F(Info, DescribesFilesThatCannotBeUpmixed)
{
    writeAudio(at("mono.wav"), kWave16, 48000, 1, stereoNoise(1000, 16));
    const Json mono = infoOf("mono.wav");
    EXPECT_EQ(mono["can_be_upmixed"], true);
    EXPECT_EQ(mono["frames"], 2000);
    EXPECT_FALSE(mono.contains("kind"));
    writeAudio(at("six.wav"), kWave16, 48000, 6, stereoNoise(3000, 16));
    EXPECT_EQ(infoOf("six.wav")["channels"], 6);
    EXPECT_EQ(infoOf("six.wav")["can_be_upmixed"], false);
    EXPECT_EQ(infoOf("six.wav")["obstacle"], "has 6 channels: only mono and stereo can be upmixed");
    writeAudio(at("slow.wav"), kWave16, 8000, 2, stereoNoise(9000, 16));
    const Json slow = infoOf("slow.wav");
    EXPECT_EQ(slow["can_be_upmixed"], true);
    EXPECT_EQ(slow["kind"], "stereo");
    EXPECT_LT(slow["bands"].back()["centre_hz"], 4000.0);
}

TEST_F(Info, ContinuesAfterAFailedFile)
{
    writeAudio(at("a.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    writeBytes(at("text.wav"), "This is no audio, but it is long enough for a header of some kind.\n");
    writeAudio(at("b.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    const Result result = tarn({"info", "--json", "a.wav", "text.wav", "missing.wav", "b.wav"});
    EXPECT_EQ(result.exitCode, 65);
    const Json files = Json::parse(result.output).at("files");
    ASSERT_EQ(files.size(), 4u);
    EXPECT_EQ(files[0]["kind"], "stereo");
    EXPECT_EQ(files[1]["exit_code"], 65);
    EXPECT_EQ(files[2]["exit_code"], 66);
    EXPECT_EQ(files[3]["kind"], "stereo");
    EXPECT_NE(result.errors.find("tarn: missing.wav: cannot be opened"), std::string::npos) << result.errors;
}

TEST_F(Info, DamageIsReportedAndReturnsOne)
{
    const Samples two = stereoNoise(48000 * 2, 16);
    for (const std::string name : {"whole.wav", "cut.wav", "shorter.wav"}) writeAudio(at(name), kWave16, 48000, 2, two);
    std::filesystem::resize_file(at("cut.wav"), std::filesystem::file_size(at("cut.wav")) - 48000 * 4);
    std::filesystem::resize_file(at("shorter.wav"), std::filesystem::file_size(at("shorter.wav")) - 4800 * 4);

    const Result lines = tarn({"info", "whole.wav", "cut.wav"});
    EXPECT_EQ(lines.exitCode, 1);
    EXPECT_NE(lines.output.find("worth upmixing; damaged\n"), std::string::npos) << lines.output;
    EXPECT_NE(lines.errors.find("cut.wav: is cut short or damaged"), std::string::npos) << lines.errors;

    const Result json = tarn({"info", "--json", "whole.wav", "cut.wav"});
    EXPECT_EQ(json.exitCode, 1);
    const Json files = Json::parse(json.output).at("files");
    EXPECT_FALSE(files[0].contains("loss"));
    EXPECT_EQ(files[1]["loss"]["seconds"], 1.0);

    EXPECT_EQ(tarn({"info", "shorter.wav"}).exitCode, 0) << "a tenth of a second";
    EXPECT_EQ(tarn({"info", "--quiet", "cut.wav", "missing.wav"}).exitCode, 66);
}

TEST_F(Info, PrintsOneLinePerFile)
{
    writeAudio(at("a.wav"), kWave16, 48000, 2, noise(1.0, 1.0, 0.0));
    writeAudio(at("mono.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 44100, 1, stereoNoise(44100 * 40, 24));
    writeFloats(at("\xc3\xa4.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 96000, 2, std::vector<float>(2 * 96000, 0.0f));
    writeAudio(at("v.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 32000, 2, noise(0.7, 0.7, 0.7));
    writeAudio(at("six.caf"), SF_FORMAT_CAF | SF_FORMAT_PCM_32, 192000, 6, Samples(6 * 100));
    writeAudio(at("l.aiff"), SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 11025, 2, noise(1.0, 0.0, 0.0));
    writeAudio(at("p.wav"), SF_FORMAT_RF64 | SF_FORMAT_PCM_16, 48000, 2, noise(1.0, 0.5, 0.0));
    writeAudio(at("i.wav"), kWave16, 48000, 2, noise(0.0, 0.0, 1.0));
    writeAudio(at("o.wav"), kWave16, 48000, 2, noise(1.0, -1.0, 0.0));
    const std::string longName = "folder of a long name/" + std::string(10, 'x') + ".wav";
    std::filesystem::create_directory(at("folder of a long name"));
    std::filesystem::copy(at("o.wav"), at(longName));
    const Result result = tarn({"info", "a.wav", "mono.flac", "\xc3\xa4.wav", "v.ogg", "six.caf", "l.aiff", "p.wav",
                                "missing.wav", "i.wav", "o.wav", longName});
    EXPECT_EQ(result.exitCode, 66);
    EXPECT_EQ(
        result.output,
        "a.wav                            0:01  WAV 16 bit           48 kHz   2 ch  dual mono, gains nothing\n"
        "mono.flac                        1:20  FLAC 24 bit        44.1 kHz   1 ch  mono, goes to the centre\n"
        "\xc3\xa4.wav                            0:01  WAV float            96 kHz   2 ch  silence\n"
        "v.ogg                            0:01  OGG Vorbis           32 kHz   2 ch  worth upmixing\n"
        "six.caf                          0:00  CAF 32 bit          192 kHz   6 ch  more than two channels, cannot be "
        "upmixed\n"
        "l.aiff                           0:04  AIFF 16 bit      11.025 kHz   2 ch  one side only, gains nothing\n"
        "p.wav                            0:01  RF64 16 bit          48 kHz   2 ch  one source, gains little\n"
        "i.wav                            0:01  WAV 16 bit           48 kHz   2 ch  little in common, gains little\n"
        "o.wav                            0:01  WAV 16 bit           48 kHz   2 ch  opposite phase, invert a side\n"
        "... long name/xxxxxxxxxx.wav     0:01  WAV 16 bit           48 kHz   2 ch  opposite phase, invert a side\n");
    EXPECT_NE(result.errors.find("tarn: missing.wav: cannot be opened"), std::string::npos) << result.errors;
}

TEST_F(Info, ColumnsAreAlignedForEveryFormat)
{
    const std::vector<std::tuple<int, std::string, std::string>> formats{
        {SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, "x.wav", "WAV 24 bit      "},
        {SF_FORMAT_WAV | SF_FORMAT_MS_ADPCM, "m.wav", "WAV MS ADPCM    "},
        {SF_FORMAT_W64 | SF_FORMAT_DOUBLE, "d.w64", "W64 double      "},
        {SF_FORMAT_AIFF | SF_FORMAT_IMA_ADPCM, "i.aiff", "AIFF IMA ADPCM  "},
        {SF_FORMAT_CAF | SF_FORMAT_ALAC_16, "a.caf", "CAF ALAC 16 bit "},
        {SF_FORMAT_AU | SF_FORMAT_ULAW, "u.au", "AU U-Law        "},
        {SF_FORMAT_OGG | SF_FORMAT_OPUS, "o.opus", "OGG Opus        "}};
    std::vector<std::string> arguments{"info"};
    std::string expected;
    for (const auto& [format, name, shown] : formats) {
        writeAudio(at(name), format, 48000, 2, Samples(2 * 48000));
        arguments.push_back(name);
        expected += name + std::string(6 - name.size(), ' ') + "     0:01  " + shown + "     48 kHz   2 ch  silence\n";
    }
    EXPECT_EQ(tarn(arguments).output, expected);
}

TEST_F(Info, RecursiveExaminesTheFilesOfFolders)
{
    std::filesystem::create_directories(at("music/b/c"));
    for (const std::string name : {"music/b/c/x.wav", "music/a.wav", "v.wav"})
        writeAudio(at(name), kWave16, 48000, 2, Samples(2 * 48000));
    for (const std::string name : {"music/y.m4a", "music/b/cover.jpg"}) writeBytes(at(name), "no audio");
    const std::string end = "     0:01  WAV 16 bit           48 kHz   2 ch  silence\n";
    const Result result = tarn({"info", "-r", "music", "v.wav"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "music/a.wav    " + end + "music/b/c/x.wav" + end + "v.wav          " + end);
    EXPECT_EQ(result.errors,
              "tarn: 1 file has a format that only tarn film reads: 1 .m4a; use tarn film, or convert with "
              "ffmpeg, for example: ffmpeg -i music/y.m4a music/y.flac\n");
    EXPECT_NE(tarn({"info", "-r", "music", "./music"}).errors.find("tarn: 1 file has a format"), std::string::npos);
    const Result quiet = tarn({"info", "--recursive", "--quiet", "--json", "music"});
    EXPECT_EQ(quiet.errors, "");
    const Json json = Json::parse(quiet.output);
    EXPECT_EQ(json["files"][1]["input"], "music/b/c/x.wav");
    EXPECT_EQ(json["unreadable"], (Json{{{"input", "music/y.m4a"}}}));

    const Result folder = tarn({"info", "music", "v.wav"});
    EXPECT_EQ(folder.exitCode, 66);
    EXPECT_EQ(folder.errors, "tarn: music: is a folder; type: tarn info --recursive music\n");
    EXPECT_EQ(folder.output, "v.wav" + end);
    std::filesystem::create_directory(at("empty"));
    EXPECT_EQ(tarn({"info", "-r", "empty"}).exitCode, 66);
}

TEST_F(Info, InterruptedRunPrintsItsReport)
{
    writeAudio(at("a.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    writeHours("hours.au");
    // The status line of the terminal does not exist here, so the test waits for a file that follows the first one.
    int errors[2];
    ASSERT_EQ(pipe2(errors, O_CLOEXEC), 0);
    const int output = open(at("report").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(output, 0);
    Process process({.arguments = {"info", "--json", "-j", "1", "a.wav", "missing.wav", "hours.au", "b.wav"}},
                    directory, STDIN_FILENO, output, errors[1]);
    close(errors[1]);
    char text[4000];
    ASSERT_GT(read(errors[0], text, sizeof text), 0) << "the note about the missing file";
    expectDeathBy(SIGINT, process);
    close(errors[0]);
    close(output);
    const std::string report = bytesOf(at("report"));
    const Json json = Json::parse(report);
    EXPECT_EQ(json.at("not_tried"), 2);
    const Json& files = json.at("files");
    ASSERT_EQ(files.size(), 4u);
    EXPECT_EQ(files[0]["frames"], 5000);
    EXPECT_EQ(files[1]["exit_code"], 66);
    EXPECT_EQ(files[2], (Json{{"input", "hours.au"}, {"not_tried", true}}));
    EXPECT_EQ(files[3], (Json{{"input", "b.wav"}, {"not_tried", true}}));
    EXPECT_EQ(Json::parse(tarn({"info", "--json", "a.wav"}).output)["not_tried"], 0);
}

TEST_F(Info, LineNamesOppositeBands)
{
    const Samples low = tone(500.0, 1.0);
    const Samples high = tone(4000.0, -1.0);
    Samples both;
    for (std::size_t i = 0; i < low.size(); ++i) both.push_back(low[i] / 2 + high[i] / 2);
    writeAudio(at("in.wav"), kWave16, 48000, 2, both);
    EXPECT_EQ(tarn({"info", "in.wav"}).output,
              "in.wav     0:01  WAV 16 bit           48 kHz   2 ch  worth upmixing, partly opposite\n");
}

TEST_F(Info, KeepsInputOrderForAnyNumberOfJobs)
{
    std::vector<std::string> inputs;
    std::string errors;
    for (unsigned i = 0; i < 9; ++i) {
        inputs.push_back("in" + std::to_string(i) + ".wav");
        // The first file takes longest.
        if (i % 4 != 3) writeAudio(at(inputs.back()), kWave16, 48000, 2, stereoNoise(i == 0 ? 2000000 : 5000, 16, i));
        if (i % 4 == 3)
            errors += "tarn: " + inputs.back() +
                      ": cannot be opened: No such file or directory; check the name and that you may read it\n";
    }
    for (const std::string option : {"--json", "--verbose", "--quiet"}) {
        std::vector<std::string> arguments{"info", option, "--jobs", "1"};
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        const Result one = tarn(arguments);
        EXPECT_EQ(one.errors, errors);
        for (const std::string jobs : {"2", "64"}) {
            arguments[3] = jobs;
            const Result many = tarn(arguments);
            EXPECT_EQ(many.exitCode, 66);
            EXPECT_EQ(many.output, one.output);
            EXPECT_EQ(many.errors, errors);
        }
    }
    EXPECT_EQ(tarn({"info", "-j", "0", "in0.wav"}).exitCode, 64);
}

TEST_F(Info, PrintsEachLineImmediately)
{
    writeAudio(at("a.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    writeHours("hours.au");
    int output[2];
    ASSERT_EQ(pipe2(output, O_CLOEXEC), 0);
    Process process({.arguments = {"info", "a.wav", "hours.au"}}, directory, STDIN_FILENO, output[1], STDERR_FILENO);
    close(output[1]);
    char line[100];
    EXPECT_GT(read(output[0], line, sizeof line), 60);
    EXPECT_EQ(std::string(line, 5), "a.wav");
    expectDeathBy(SIGTERM, process);
    close(output[0]);
}

TEST_F(Info, ProgressBarIsShownOnATerminalForASingleFile)
{
    writeHours("a.au");
    writeHours("b.au");
    const auto forASecond = [this](const std::string& arguments) {
        const std::string command = "timeout --foreground 1 '" TARN_COMMAND "' info " + arguments;
        return runIn(directory, {.arguments = {"-qec", command, "/dev/null"}, .program = "script"}).output;
    };
    EXPECT_NE(forASecond("a.au").find("examining "), std::string::npos);
    EXPECT_EQ(forASecond("a.au b.au").find("examining"), std::string::npos);
    EXPECT_EQ(forASecond("--quiet a.au").find("examining"), std::string::npos);
}

TEST_F(Info, CrashFailsOneFileOnly)
{
    for (const std::string name : {"a.wav", "abort.wav", "b.wav"})
        writeAudio(at(name), kWave16, 48000, 2, stereoNoise(5000, 16));
    const Result result = tarnWithCrashes({"info", "--json", "a.wav", "abort.wav", "b.wav"});
    EXPECT_EQ(result.exitCode, 70);
    EXPECT_NE(result.errors.find("tarn: abort.wav: the decoder or encoder crashed (signal 6, Aborted)"),
              std::string::npos)
        << result.errors;
    const Json files = Json::parse(result.output).at("files");
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(files[0]["kind"], "stereo");
    EXPECT_EQ(files[1]["exit_code"], 70);
    EXPECT_EQ(files[2]["kind"], "stereo");
}

TEST_F(Info, MemoryIsIndependentOfLength)
{
    const auto peakKibibytes = [this](std::size_t seconds) {
        writeSilence("in.au", seconds);
        const Result result = tarn({"info", "in.au"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return result.peakKibibytes;
    };
    const long shortFile = peakKibibytes(5);
    EXPECT_GT(shortFile, 0);
    EXPECT_LT(peakKibibytes(100) - shortFile, 1024);
}

TEST_F(Info, FullDiskFails)
{
    infoOf(noise(1.0, 1.0, 0.0));
    for (const std::string arguments : {"info in.wav", "info --json in.wav", "upmix --quiet --json in.wav out.wav"}) {
        const Result result = shell("\"$TARN\" " + arguments + " > /dev/full");
        EXPECT_EQ(result.exitCode, 74) << arguments;
        EXPECT_NE(result.errors.find("standard output"), std::string::npos) << result.errors;
    }
}

} // namespace tarn_cli
