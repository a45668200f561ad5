// Inputs that the command converts first: other sample rates, mono.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <numbers>

namespace tarn_cli
{

namespace
{

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

/// A Gaussian pulse around a frame in both channels.
Samples pulse(std::size_t frames, double centre, double width)
{
    Samples samples;
    for (std::size_t i = 0; i < frames; ++i) {
        const double distance = (static_cast<double>(i) - centre) / width;
        const double value = 0.5 * std::exp(-distance * distance);
        const auto sample = static_cast<std::int32_t>(std::lround(value * 0x7fff)) * 0x10000;
        samples.insert(samples.end(), {sample, sample});
    }
    return samples;
}

/// Centroid of a slot's energy over time, in frames.
double centreOfEnergy(const Samples& samples, std::size_t slots, std::size_t slot)
{
    double energy = 0.0;
    double moment = 0.0;
    for (std::size_t i = 0; i < samples.size() / slots; ++i) {
        const double value = samples[i * slots + slot] * 0x1p-31;
        energy += value * value;
        moment += value * value * static_cast<double>(i);
    }
    return moment / energy;
}

} // namespace

/// Rate of the input, rate of the output.
class Rates : public CommandTest, public testing::WithParamInterface<std::pair<int, int>>
{};

TEST_P(Rates, ConversionKeepsLengthAndPosition)
{
    const auto [rate, expected] = GetParam();
    const auto frames = static_cast<std::size_t>(rate) + 7;
    const double centre = rate * 0.7;
    writeAudio(at("in.wav"), kWave16, rate, 2, pulse(frames, centre, rate / 1000.0));
    const Result result = tarn({"upmix", "--bypass", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("tarn: in.wav: converted from " + std::to_string(rate) + " to " +
                                 std::to_string(expected) + " Hz"),
              std::string::npos)
        << result.errors;
    const Audio output = readAudio(at("out.wav"));
    EXPECT_EQ(output.info.samplerate, expected);
    EXPECT_EQ(output.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_24);
    EXPECT_EQ(output.info.frames, std::llround(static_cast<double>(frames) * expected / rate));
    // The tolerance is 0.01 frame because the pulse is rounded to 16 bits.
    EXPECT_NEAR(centreOfEnergy(output.samples, 3, 0), centre * expected / rate, 0.01);
}

INSTANTIATE_TEST_SUITE_P(Command, Rates,
                         testing::Values(std::pair(8000, 32000), std::pair(11025, 32000), std::pair(16000, 32000),
                                         std::pair(22050, 32000), std::pair(37800, 44100), std::pair(176400, 192000),
                                         std::pair(352800, 192000), std::pair(384000, 192000)),
                         [](const auto& test) { return std::to_string(test.param.first); });

class Conversion : public CommandTest
{};

TEST_F(Conversion, ConvertsToTheRequestedRate)
{
    writeAudio(at("in.wav"), kWave16, 44100, 2, pulse(44100, 20000, 40));
    ASSERT_EQ(tarn({"upmix", "--rate", "48000", "in.wav", "out.wav"}).exitCode, 0);
    EXPECT_EQ(readAudio(at("out.wav")).info.samplerate, 48000);
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 48000);
    // The rate of the input needs no conversion.
    ASSERT_EQ(tarn({"upmix", "in.wav", "plain.wav"}).exitCode, 0);
    ASSERT_EQ(tarn({"upmix", "--rate", "44100", "in.wav", "same.wav"}).exitCode, 0);
    EXPECT_TRUE(bytesOf(at("same.wav")) == bytesOf(at("plain.wav")));
}

TEST_F(Conversion, ConvertsRawStreams)
{
    const Samples stereo = pulse(22050, 10000, 40);
    const Result result = tarnWithInput(pcmOf(stereo, 16), {"upmix", "--raw", "22050:16", "-", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.samplerate, 32000);
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 32000);
}

TEST_F(Conversion, PeaksRaisedAboveFullScaleAreScaledDown)
{
    // A sine at a quarter of the rate peaks 3 dB above its samples.
    Samples stereo;
    for (std::size_t i = 0; i < 22050; ++i) {
        const std::int32_t sample = i % 4 < 2 ? 0x7fff0000 : -0x7fff0000;
        stereo.insert(stereo.end(), {sample, sample});
    }
    writeAudio(at("in.wav"), kWave16, 22050, 2, stereo);
    const Result result = tarn({"upmix", "--bypass", "--json", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("raises its peak above full scale: scaled down by "), std::string::npos)
        << result.errors;
    EXPECT_EQ(nlohmann::json::parse(result.output)["channels"][0]["full_scale_samples"], 1) << "the peak of the wave";
}

TEST_F(Conversion, MonoFeedsBothEngineInputs)
{
    const Samples noise = stereoNoise(20000, 16);
    Samples mono;
    Samples both;
    for (std::size_t i = 0; i < noise.size(); i += 2) {
        mono.push_back(noise[i]);
        both.insert(both.end(), {noise[i], noise[i]});
    }
    writeAudio(at("in.wav"), kWave16, 48000, 1, mono);
    const Result result = tarn({"upmix", "--json", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("tarn: in.wav: mono, which is read as equal left and right\n"), std::string::npos)
        << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput(both, {}));
    EXPECT_GT(nlohmann::json::parse(result.output)["channels"][2]["energy_share"], 0.95);

    writeAudio(at("float.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 1, mono);
    EXPECT_EQ(tarn({"upmix", "float.wav", "from-float.wav"}).exitCode, 0);
    EXPECT_EQ(readAudio(at("from-float.wav")).info.frames, 20000);
}

TEST_F(Conversion, ReductionTo24BitsForFlacIsNoted)
{
    const Samples stereo = stereoNoise(9000, 32);
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_32, 48000, 2, stereo);
    const Result result = tarn({"upmix", "in.wav", "out.flac"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("tarn: out.flac: is written with 24 bits, the maximum of its format; the input has "
                                 "32\n"),
              std::string::npos)
        << result.errors;
    EXPECT_TRUE(readAudio(at("out.flac")).samples == engineOutput(stereo, {.bits = 24}));
    EXPECT_EQ(tarn({"upmix", "--quiet", "--force", "in.wav", "out.flac"}).errors,
              "tarn: out.flac: is written with 24 bits, the maximum of its format; the input has 32\n");
}

} // namespace tarn_cli
