// Sample formats of inputs: default width, scaling, non-finite samples.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace tarn_cli
{

namespace
{

const double kHeadroom = std::ldexp(1.0, -kHeadroomBits);

/// Converts a floating-point sample to 32 bits, left-justified, after a gain.
std::int32_t scaled(float sample, double gain)
{
    const double wide = std::round(static_cast<double>(sample) * gain * 0x1p31);
    return static_cast<std::int32_t>(std::clamp(wide, -0x1p31, 0x1p31 - 1.0));
}

std::vector<float> noiseWithPeak(std::size_t frames, float peak)
{
    std::vector<float> samples;
    for (const std::int32_t sample : stereoNoise(frames, 16)) samples.push_back(static_cast<float>(sample) * 0x1p-32f);
    samples[frames / 2 * 2] = -peak;
    return samples;
}

Samples scaledSamples(const std::vector<float>& samples, double gain)
{
    Samples result;
    for (const float sample : samples) result.push_back(scaled(sample, gain));
    return result;
}

} // namespace

/// A format and the default output width for it.
struct DefaultWidth
{
    std::string name;
    std::string file;
    int format;
    int width; ///< SF_FORMAT_PCM_*
};

std::ostream& operator<<(std::ostream& stream, const DefaultWidth& source)
{
    return stream << source.file;
}

class DefaultWidths : public CommandTest, public testing::WithParamInterface<DefaultWidth>
{};

TEST_P(DefaultWidths, IsTheSourceWidthAnd24ForLossySources)
{
    const DefaultWidth& source = GetParam();
    Samples stereo = stereoNoise(9000, 16);
    for (std::int32_t& sample : stereo) sample /= 4;
    writeAudio(at(source.file), source.format, 48000, 2, stereo);
    const Result result = tarn({"upmix", source.file, "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const Audio output = readAudio(at("out.wav"));
    EXPECT_EQ(output.info.format & SF_FORMAT_SUBMASK, source.width);
    EXPECT_EQ(output.info.frames, readAudio(at(source.file)).info.frames);
}

INSTANTIATE_TEST_SUITE_P(
    Command, DefaultWidths,
    testing::Values(DefaultWidth{"Wave8", "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, SF_FORMAT_PCM_16},
                    DefaultWidth{"Wave16", "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_PCM_16},
                    DefaultWidth{"Aiff24", "in.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, SF_FORMAT_PCM_24},
                    DefaultWidth{"Caf32", "in.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_32, SF_FORMAT_PCM_32},
                    DefaultWidth{"Flac16", "in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, SF_FORMAT_PCM_16},
                    DefaultWidth{"Flac24", "in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, SF_FORMAT_PCM_24},
                    DefaultWidth{"Alac16", "in.caf", SF_FORMAT_CAF | SF_FORMAT_ALAC_16, SF_FORMAT_PCM_16},
                    DefaultWidth{"Alac20", "in.caf", SF_FORMAT_CAF | SF_FORMAT_ALAC_20, SF_FORMAT_PCM_24},
                    DefaultWidth{"Float", "in.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, SF_FORMAT_PCM_24},
                    DefaultWidth{"MuLaw", "in.au", SF_FORMAT_AU | SF_FORMAT_ULAW, SF_FORMAT_PCM_24},
                    DefaultWidth{"Vorbis", "in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, SF_FORMAT_PCM_24},
                    DefaultWidth{"Opus", "in.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, SF_FORMAT_PCM_24},
                    DefaultWidth{"Mp3", "in.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, SF_FORMAT_PCM_24}),
    [](const auto& test) { return test.param.name; });

class Sources : public CommandTest
{};

TEST_F(Sources, TheLimiterKeepsPeaksAboveFullScaleWithoutAGainForTheFile)
{
    const std::vector<float> samples = noiseWithPeak(9000, 1.5f);
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    const Result result = tarn({"upmix", "--json", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors.find("above full scale"), std::string::npos) << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples ==
                engineOutput(scaledSamples(samples, kHeadroom), {.bits = 24, .headroom = true}));
    const auto report = nlohmann::json::parse(result.output);
    EXPECT_EQ(report["input_gain_db"], 0.0);
    EXPECT_EQ(report["clipped_input_samples"], 0);
    EXPECT_EQ(report["clipped_samples"], 0);
    EXPECT_GT(report["limiter"]["largest_reduction_db"], 0.5);
}

TEST_F(Sources, APeakDoesNotChangeTheLevelOfTheRest)
{
    std::vector<float> samples = noiseWithPeak(40000, 1.5f);
    writeFloats(at("peak.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    samples[40000] = 0.1f;
    writeFloats(at("soft.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    ASSERT_EQ(tarn({"upmix", "--output-dir", "out", "peak.wav", "soft.wav"}).exitCode, 0);
    const Samples peak = readAudio(at("out/peak.wav-3.0.wav")).samples;
    const Samples soft = readAudio(at("out/soft.wav-3.0.wav")).samples;
    ASSERT_EQ(peak.size(), soft.size());
    const std::ptrdiff_t before = 3 * 18000;
    EXPECT_TRUE(std::equal(peak.begin(), peak.begin() + before, soft.begin()));
    EXPECT_FALSE(peak == soft) << "precondition of this test";
}

TEST_F(Sources, SamplesBeyondTheHeadroomAreClippedAndCounted)
{
    std::vector<float> samples = noiseWithPeak(9000, 1e5f);
    samples[7001] = 15.9f;
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    const Result result = tarn({"upmix", "--quiet", "--json", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors, "tarn: in.wav: 1 sample is more than 24 dB above full scale and is clipped; the file is "
                             "probably damaged: check where it comes from\n");
    EXPECT_EQ(nlohmann::json::parse(result.output)["clipped_input_samples"], 1);
    EXPECT_TRUE(readAudio(at("out.wav")).samples ==
                engineOutput(scaledSamples(samples, kHeadroom), {.bits = 24, .headroom = true}));
}

// A file is written at full scale until the first sample above it, a stream is not.
TEST_F(Sources, ALatePeakScalesTheWholeFileDown)
{
    for (const std::size_t peakSample : {0u, 20'001u, 39'999u}) {
        std::vector<float> samples = noiseWithPeak(20'000, 1.0f);
        samples[peakSample] = -1.5f;
        writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
        for (const std::string rate : {"48000", "96000"}) {
            const std::vector<std::string> options{"upmix", "--preset", "plain", "--rate", rate, "in.wav"};
            const auto to = [&](const std::vector<std::string>& output) {
                std::vector<std::string> arguments = options;
                arguments.insert(arguments.end(), output.begin(), output.end());
                return tarn(arguments);
            };
            const Result stream = to({"-"});
            ASSERT_EQ(stream.exitCode, 0) << stream.errors;
            const std::string converted =
                rate == "48000" ? "" : "tarn: in.wav: converted from 48000 to " + rate + " Hz\n";
            const std::string scaled = "tarn: in.wav: peak +3.52 dB above full scale: scaled down by 3.52 dB\n";
            EXPECT_TRUE(stream.errors.starts_with(scaled + converted)) << stream.errors;
            for (const std::string output : {"out.wav", "out.flac"}) {
                const Result file = to({output, "--json"});
                ASSERT_EQ(file.exitCode, 0) << file.errors;
                // The peak is found later.
                EXPECT_TRUE(file.errors.starts_with(converted + scaled)) << file.errors;
                EXPECT_TRUE(pcmOf(readAudio(at(output)).samples, 24) == stream.output) << peakSample << " " << output;
                EXPECT_EQ(files(), (std::vector<std::string>{"in.wav", output}));
                EXPECT_LT(nlohmann::json::parse(file.output)["input_gain_db"], -3.5);
                std::filesystem::remove(at(output));
            }
        }
    }
}

TEST_F(Sources, NotesArePrintedBeforeAnUpmixThatFails)
{
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 1, std::vector<float>(50'000, 0.25f));
    const Result result = shell("ulimit -f 100; \"$TARN\" upmix --preset plain in.wav out.wav");
    EXPECT_EQ(result.exitCode, 74);
    EXPECT_TRUE(result.errors.starts_with("tarn: in.wav: mono, which is read as equal left and right\n"))
        << result.errors;
    EXPECT_NE(result.errors.find("out.wav: writing failed"), std::string::npos) << result.errors;
}

TEST_F(Sources, PeaksAboveFullScaleAreScaledDownWithANoteWithoutLimiter)
{
    const std::vector<float> samples = noiseWithPeak(9000, 1.5f);
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    const Result result = tarn({"upmix", "--preset", "plain", "--json", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    // 20 log10 1.5 = 3.5218
    EXPECT_NE(result.errors.find("tarn: in.wav: peak +3.52 dB above full scale: scaled down by 3.52 dB\n"),
              std::string::npos)
        << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples ==
                engineOutput(scaledSamples(samples, 1.0 / 1.5), {.bits = 24, .plain = true}));
    EXPECT_NEAR(nlohmann::json::parse(result.output)["input_gain_db"], -3.5218, 1e-4);
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"--bypass"}, {"--no-limiter"}, {"--layout", "2.0"}}) {
        std::vector<std::string> arguments{"upmix", "--force", "in.wav", "out.wav"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        EXPECT_NE(tarn(arguments).errors.find("scaled down by 3.52 dB"), std::string::npos) << options[0];
    }
}

TEST_F(Sources, LossyPeaksAboveFullScale)
{
    std::vector<float> square;
    for (int i = 0; i < 2 * 9000; ++i) square.push_back(i / 2 / 50 % 2 == 0 ? 1.0f : -1.0f);
    writeFloats(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 48000, 2, square);
    const std::vector<float> decoded = readFloats(at("in.ogg"));
    const auto quieter = [](float a, float b) { return std::abs(a) < std::abs(b); };
    const double peak = std::abs(static_cast<double>(*std::max_element(decoded.begin(), decoded.end(), quieter)));
    ASSERT_GT(peak, 1.0);

    ASSERT_EQ(tarn({"upmix", "in.ogg", "out.wav"}).exitCode, 0);
    EXPECT_TRUE(readAudio(at("out.wav")).samples ==
                engineOutput(scaledSamples(decoded, kHeadroom), {.bits = 24, .headroom = true}));

    const Result result = tarn({"upmix", "--force", "--preset", "plain", "in.ogg", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    char decibels[16];
    std::snprintf(decibels, sizeof decibels, "%.2f dB", 20.0 * std::log10(peak));
    EXPECT_NE(result.errors.find(std::string("scaled down by ") + decibels), std::string::npos) << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples ==
                engineOutput(scaledSamples(decoded, 1.0 / peak), {.bits = 24, .plain = true}));
}

TEST_F(Sources, PeaksUpToFullScaleAreNotScaled)
{
    const std::vector<float> samples = noiseWithPeak(9000, 1.0f);
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    const Result result = tarn({"upmix", "--preset", "plain", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors.find("scaled"), std::string::npos) << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples ==
                engineOutput(scaledSamples(samples, 1.0), {.bits = 24, .plain = true}));
}

TEST_F(Sources, QuietPrintsNothing)
{
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, noiseWithPeak(9000, 1.5f));
    const Result result = tarn({"upmix", "--quiet", "in.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, "");
}

TEST_F(Sources, NonFiniteSamplesAreRefusedWithTheFrame)
{
    for (const float bad : {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity()}) {
        std::vector<float> samples = noiseWithPeak(9000, 0.5f);
        samples[2 * 4321 + 1] = bad;
        writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
        const Result result = tarn({"upmix", "in.wav", "out.wav"});
        EXPECT_EQ(result.exitCode, 65);
        EXPECT_NE(result.errors.find("frame 4321 "), std::string::npos) << result.errors;
        EXPECT_EQ(files(), (std::vector<std::string>{"in.wav"}));
    }
}

TEST_F(Sources, UnknownLengthIsReadToTheEnd)
{
    const Samples stereo = stereoNoise(9000, 16);
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereo);
    const Samples expected = engineOutput(stereo, {});

    std::string wave = bytesOf(at("in.wav"));
    const std::size_t size = wave.find("data") + 4;
    for (const std::string placeholder : {"\xff\xff\xff\xff", "\xff\xff\xff\x7f"}) {
        writeBytes(at("stream.wav"), wave.replace(size, 4, placeholder));
        const Result result = tarn({"upmix", "--force", "stream.wav", "out.wav"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_TRUE(readAudio(at("out.wav")).samples == expected);
    }

    writeAudio(at("in.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 2, stereo);
    std::string flac = bytesOf(at("in.flac"));
    // The number of frames is the last 36 bits before the checksum of the first metadata block.
    flac[21] = static_cast<char>(flac[21] & 0xf0);
    flac.replace(22, 4, 4, '\0');
    writeBytes(at("stream.flac"), flac);
    const Result result = tarn({"upmix", "--force", "stream.flac", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples == expected);
}

} // namespace tarn_cli
