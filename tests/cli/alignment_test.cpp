// The delay of `tarn upmix` with and without alignment.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <cmath>
#include <cstdlib>

namespace tarn_cli
{

namespace
{

constexpr std::size_t kFrames = 12000;
constexpr std::size_t kSlots = 3;
constexpr std::size_t kCentre = 2;

/// Frame with the largest magnitude in a slot.
std::size_t peakFrame(const Samples& samples, std::size_t slot)
{
    std::size_t peak = 0;
    for (std::size_t i = 0; i < samples.size() / kSlots; ++i)
        if (std::abs(std::int64_t{samples[i * kSlots + slot]}) > std::abs(std::int64_t{samples[peak * kSlots + slot]}))
            peak = i;
    return peak;
}

/// Lag at which the cross-correlation of the left input with a slot is largest.
std::size_t correlationLag(const Samples& stereo, const Samples& output, std::size_t slot)
{
    constexpr std::size_t kMaxLag = 2000;
    std::size_t best = 0;
    double bestSum = 0.0;
    for (std::size_t lag = 0; lag <= kMaxLag; ++lag) {
        double sum = 0.0;
        for (std::size_t i = 0; i < kFrames - kMaxLag; ++i)
            sum += static_cast<double>(stereo[2 * i]) * output[(i + lag) * kSlots + slot];
        if (std::abs(sum) > bestSum) {
            bestSum = std::abs(sum);
            best = lag;
        }
    }
    return best;
}

} // namespace

/// Sample rate.
class Alignment : public CommandTest, public testing::WithParamInterface<int>
{
protected:
    Samples upmixed(const Samples& stereo, const std::vector<std::string>& options) const
    {
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, GetParam(), 2, stereo);
        std::vector<std::string> arguments{"upmix", "--force", "in.wav", "out.wav"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        EXPECT_EQ(tarn(arguments).exitCode, 0);
        return readAudio(at("out.wav")).samples;
    }
};

TEST_P(Alignment, ImpulseIs960FramesLateOnlyWithoutAlignment)
{
    constexpr std::size_t kImpulse = 5003;
    Samples stereo(2 * kFrames);
    stereo[2 * kImpulse] = stereo[2 * kImpulse + 1] = 0x60000000;
    const Samples delayed = upmixed(stereo, {"--no-align"});
    const Samples aligned = upmixed(stereo, {});
    EXPECT_EQ(delayed.size(), kFrames * kSlots);
    EXPECT_EQ(aligned.size(), kFrames * kSlots);
    EXPECT_EQ(peakFrame(delayed, kCentre), kImpulse + 960);
    EXPECT_EQ(peakFrame(aligned, kCentre), kImpulse);
}

TEST_P(Alignment, NoiseIs960FramesLateOnlyWithoutAlignment)
{
    const Samples stereo = stereoNoise(kFrames, 16);
    const Samples delayed = upmixed(stereo, {"--no-align"});
    const Samples aligned = upmixed(stereo, {});
    EXPECT_EQ(correlationLag(stereo, delayed, 0), 960u);
    EXPECT_EQ(correlationLag(stereo, delayed, kCentre), 960u);
    EXPECT_EQ(correlationLag(stereo, aligned, 0), 0u);
    EXPECT_EQ(correlationLag(stereo, aligned, kCentre), 0u);
}

TEST_P(Alignment, LastFramesAreKept)
{
    Samples stereo(2 * kFrames);
    stereo[2 * kFrames - 2] = stereo[2 * kFrames - 1] = 0x60000000;
    EXPECT_EQ(peakFrame(upmixed(stereo, {}), kCentre), kFrames - 1);
}

INSTANTIATE_TEST_SUITE_P(Command, Alignment, testing::Values(32000, 48000, 192000));

} // namespace tarn_cli
