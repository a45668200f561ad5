// The samples that `tarn upmix` writes equal those of the engine.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <tuple>

namespace tarn_cli
{

namespace
{

constexpr const char* kMatrix = "# one output of the engine per line\n"
                                "1 0 0.25 -0.5\n"
                                "\n"
                                "0 +0.5 -0.125 0.3  # front right\n"
                                "0.70710678 0.25 0.1 1e-1\n";

/// The same gains with 28 fraction bits, calculated by hand.
constexpr std::array<std::array<std::int32_t, 4>, 3> kFixedMatrix{{
    {0x10000000, 0, 0x04000000, -0x08000000},
    {0, 0x08000000, -0x02000000, 80530637},      // 0.3 * 2^28 = 80530636.8
    {189812531, 0x04000000, 26843546, 26843546}, // 0.70710678 * 2^28 = 189812530.77, 0.1 * 2^28 = 26843545.6
}};

int subtype(unsigned bits)
{
    return bits == 16 ? SF_FORMAT_PCM_16 : bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32;
}

} // namespace

/// Layout, width, alignment on or off, frames.
class ExactBytes : public CommandTest,
                   public testing::WithParamInterface<std::tuple<std::string, unsigned, bool, std::size_t>>
{};

TEST_P(ExactBytes, EqualThoseOfTheEngine)
{
    const auto [layout, bits, align, frames] = GetParam();
    const Samples stereo = stereoNoise(frames, bits);
    writeAudio(at("in.wav"), SF_FORMAT_WAV | subtype(bits), 48000, 2, stereo);

    std::vector<std::string> arguments{"upmix", "--preset", "plain", "--layout", layout, "in.wav", "out.wav"};
    if (!align) arguments.emplace_back("--no-align");
    if (layout == "7.1-remap") {
        writeBytes(at("matrix.txt"), kMatrix);
        arguments.insert(arguments.end(), {"--remap", "matrix.txt"});
    }
    const Result result = tarn(arguments);
    ASSERT_EQ(result.exitCode, 0) << result.errors;

    const Audio output = readAudio(at("out.wav"));
    EXPECT_EQ(output.info.format & SF_FORMAT_SUBMASK, subtype(bits));
    EXPECT_EQ(output.info.samplerate, 48000);
    EXPECT_EQ(output.info.channels, static_cast<int>(slotsOf(layout)));
    EXPECT_EQ(output.info.frames, static_cast<sf_count_t>(frames));
    EXPECT_TRUE(
        output.samples ==
        engineOutput(stereo, {.layout = layout, .bits = bits, .plain = true, .align = align, .remap = kFixedMatrix}));
}

INSTANTIATE_TEST_SUITE_P(Command, ExactBytes,
                         testing::Combine(testing::Values("3.0", "5.1", "7.1-remap"), testing::Values(16u, 24u, 32u),
                                          testing::Bool(), testing::Values(1u, 500u, 4096u, 10007u)));

class UpmixedBytes : public CommandTest
{};

TEST_F(UpmixedBytes, DependOnRateAndMode)
{
    for (const std::uint32_t rate : {32000u, 44100u, 48000u, 64000u, 88200u, 96000u, 192000u}) {
        const Samples stereo = stereoNoise(5000, 16, rate);
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, static_cast<int>(rate), 2, stereo);
        for (const char* const mode : {"fast", "calm"}) {
            const Result result = tarn({"upmix", "--force", "--mode", mode, "in.wav", "out.wav"});
            ASSERT_EQ(result.exitCode, 0) << result.errors;
            const Audio output = readAudio(at("out.wav"));
            EXPECT_EQ(output.info.samplerate, static_cast<int>(rate));
            EXPECT_TRUE(output.samples == engineOutput(stereo, {.sampleRate = rate, .mode = mode})) << rate << mode;
        }
    }
}

TEST_F(UpmixedBytes, AreTheSameForModesByNameAndNumber)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(5000, 16));
    for (const auto& [number, name] : {std::pair{"1", "fast"}, std::pair{"2", "calm"}}) {
        ASSERT_EQ(tarn({"upmix", "--force", "--mode", number, "in.wav", "number.wav"}).exitCode, 0);
        ASSERT_EQ(tarn({"upmix", "--force", "--mode", name, "in.wav", "name.wav"}).exitCode, 0);
        EXPECT_TRUE(bytesOf(at("number.wav")) == bytesOf(at("name.wav"))) << name;
    }
}

TEST_F(UpmixedBytes, AreTheSameInFlacAndWave)
{
    const Samples stereo = stereoNoise(10007, 24);
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 96000, 2, stereo);
    for (const char* const layout : {"3.0", "5.1"}) {
        ASSERT_EQ(tarn({"upmix", "--force", "--layout", layout, "in.wav", "out.flac"}).exitCode, 0);
        EXPECT_TRUE(readAudio(at("out.flac")).samples ==
                    engineOutput(stereo, {.layout = layout, .sampleRate = 96000, .bits = 24}));
    }
}

TEST_F(UpmixedBytes, WiderSourceIsRoundedHalfAwayFromZeroAndClipped)
{
    Samples stereo = stereoNoise(5000, 32);
    // Positive and negative halves of a 16-bit step, and a sample that rounds above the maximum.
    const Samples special{0x8000, -0x8000, 0x7fff, -0x7fff, 0x7fffffff, -0x7fffffff - 1, 0x7fff8000, 0x7fff7fff};
    std::copy(special.begin(), special.end(), stereo.begin() + 2000);
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_32, 48000, 2, stereo);
    for (const unsigned bits : {16u, 24u, 32u}) {
        ASSERT_EQ(tarn({"upmix", "--force", "--bits", std::to_string(bits), "in.wav", "out.wav"}).exitCode, 0);
        EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput(stereo, {.bits = bits})) << bits;
    }
}

TEST_F(UpmixedBytes, NarrowerSourceIsShiftedLeft)
{
    const Samples stereo = stereoNoise(5000, 16);
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereo);
    for (const unsigned bits : {24u, 32u}) {
        ASSERT_EQ(tarn({"upmix", "--force", "--bits", std::to_string(bits), "in.wav", "out.wav"}).exitCode, 0);
        EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput(stereo, {.bits = bits})) << bits;
    }
}

} // namespace tarn_cli
