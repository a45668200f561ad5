// Runs the engine with given steering thresholds, on test scenes or on recordings.
// SPDX-License-Identifier: MIT
#include "tools/steering_field.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

namespace design
{

namespace
{

constexpr int kBlock = 64;
constexpr int kBits = 24;
constexpr std::int32_t kFastMode = 1;
constexpr double kLevel = 0.05 * 8388607.0; ///< of unit power, 26 dB below full scale

void storeSample(double value, std::uint8_t* position)
{
    const auto sample = static_cast<std::uint32_t>(static_cast<std::int32_t>(std::clamp(value, -8388608.0, 8388607.0)));
    for (int j = 0; j < 3; ++j) position[j] = static_cast<std::uint8_t>(sample >> (8 * j));
}

} // namespace

std::unique_ptr<ZRKTarn> makeEngine(std::uint32_t rateHz, int bits, const Thresholds& thresholds)
{
    auto engine = std::make_unique<ZRKTarn>();
    engine->Open();
    engine->Initialize({.spare = 0,
                        .outputChannels = 3,
                        .bitsPerSample = bits,
                        .sampleRate = rateHz,
                        .mode = kFastMode,
                        .option = 0,
                        .mixFraction = 1.0f});
    std::copy(std::begin(thresholds.fast), std::end(thresholds.fast), engine->thresBands);
    std::copy(std::begin(thresholds.mid), std::end(thresholds.mid), engine->midThresBands);
    std::copy(std::begin(thresholds.slow), std::end(thresholds.slow), engine->slowThresBands);
    return engine;
}

SteeringField::SteeringField(std::uint32_t rateHz, std::uint64_t seed, const Thresholds& thresholds)
    : ownEngine(makeEngine(rateHz, kBits, thresholds)),
      sourceNoise(3 * seed),
      leftNoise(3 * seed + 1),
      rightNoise(3 * seed + 2)
{}

void SteeringField::run(const Scene& scene)
{
    constexpr int kSlots = 3;
    constexpr int kBytes = 3;
    constexpr double kHalfPi = std::numbers::pi / 2.0;

    const double leftGain = scene.sourceGain * std::cos(kHalfPi * scene.position);
    const double rightGain = scene.sourceGain * std::sin(kHalfPi * scene.position);
    std::uint8_t buffer[kBlock * kSlots * kBytes];
    for (int i = 0; i < kBlock; ++i) {
        const double source = scene.sourceGain == 0.0 ? 0.0 : sourceNoise.next();
        std::uint8_t* const frame = buffer + i * kSlots * kBytes;
        storeSample(kLevel * (leftGain * source + leftNoise.next()), frame);
        storeSample(kLevel * (rightGain * source + rightNoise.next()), frame + kBytes);
    }
    ownEngine->SetChannelPtrs(buffer, buffer + kBytes, buffer + 2 * kBytes, buffer + 2 * kBytes);
    ownEngine->ProcessCine3InterLeave(kBlock, kSlots);
}

} // namespace design
