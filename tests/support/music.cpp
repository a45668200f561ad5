// Generated music for measurements.
// SPDX-License-Identifier: MIT
#include "tests/support/music.h"

#include "tests/support/random.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace tests
{

namespace
{

constexpr double kRate = 48000.0;
constexpr double kLoudnessBlocks = 256.0;

/// Noise through a one-pole low-pass, with the power of the noise.
class Voice
{
public:
    Voice(double pole, double left, double right) : filterPole(pole), leftGain(left), rightGain(right) {}

    void addTo(double& left, double& right, tests::Random& random)
    {
        state += (1.0 - filterPole) * (random.uniform() - state);
        const double value = state * std::sqrt((1.0 + filterPole) / (1.0 - filterPole));
        left += leftGain * value;
        right += rightGain * value;
    }

private:
    double filterPole;
    double leftGain;
    double rightGain;
    double state = 0.0;
};

double decayingTone(std::size_t frame)
{
    constexpr std::size_t kPeriod = 24000;
    constexpr double kDecay = 9000.0;
    constexpr double kPitches[] = {220.0, 330.0, 277.2, 440.0};
    const double pitch = kPitches[frame / kPeriod % std::size(kPitches)];
    const auto age = static_cast<double>(frame % kPeriod);
    return std::exp(-age / kDecay) * std::sin(2.0 * std::numbers::pi * pitch * age / kRate);
}

std::vector<std::int32_t> compose()
{
    tests::Random random(20240229);
    Voice low(0.97, 0.12, 0.05);
    Voice high(0.7, 0.04, 0.09);
    std::vector<std::int32_t> samples;
    samples.reserve(2 * kMusicBlocks * kBlockFrames);
    for (std::size_t frame = 0; frame < kMusicBlocks * kBlockFrames; ++frame) {
        double left = 0.0;
        double right = 0.0;
        low.addTo(left, right, random);
        high.addTo(left, right, random);
        const double tone = decayingTone(frame);
        left += 0.15 * tone;
        right += 0.15 * tone;

        const double phase = static_cast<double>(frame) / (kBlockFrames * kLoudnessBlocks);
        const double loudness = std::pow(10.0, 0.5 * std::sin(2.0 * std::numbers::pi * phase));
        for (const double value : {left, right})
            samples.push_back(static_cast<std::int32_t>(std::clamp(value * loudness, -1.0, 1.0) * INT32_MAX));
    }
    return samples;
}

} // namespace

std::span<const std::int32_t> music()
{
    static const std::vector<std::int32_t> samples = compose();
    return samples;
}

} // namespace tests
