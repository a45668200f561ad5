// Runs the engine with given steering thresholds, on test scenes or on recordings.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "tools/pink_noise.h"

#include <cstdint>
#include <memory>

namespace design
{

/// Thresholds of the 16 groups.
struct Thresholds
{
    float fast[16];
    float mid[16];
    float slow[16];
};

/// A new engine with three outputs in mode 1.
///
/// thresholds  null keeps those of the engine
std::unique_ptr<ZRKTarn> makeEngine(std::uint32_t rateHz, int bits, const Thresholds* thresholds);

/// A panned source in a diffuse field of pink noise.
struct Scene
{
    double position = 0.0;   ///< 0 hard left, 0.5 centre, 1 hard right, by the sine/cosine law
    double sourceGain = 0.0; ///< 0 for the diffuse field alone
    double fieldGain = 1.0;  ///< of each channel's independent noise
};

/// Runs the engine at 48 kHz on scenes, block by block.
class SteeringField
{
public:
    SteeringField(std::uint64_t seed, const Thresholds* thresholds);

    /// Runs one block of 64 frames.
    void run(const Scene& scene);

    const ZRKTarn& engine() const { return *ownEngine; }

private:
    std::unique_ptr<ZRKTarn> ownEngine;
    PinkNoise sourceNoise;
    PinkNoise leftNoise;
    PinkNoise rightNoise;
};

} // namespace design
