// Runs the engine on test scenes to read its steering.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "tools/pink_noise.h"

#include <cstdint>
#include <memory>

namespace design
{

/// Thresholds of the 16 groups at 48 kHz.
struct Thresholds
{
    float fast[16];
    float mid[16];
    float slow[16];
};

/// A panned source in a diffuse field of pink noise.
struct Scene
{
    double position = 0.0;   ///< 0 hard left, 0.5 centre, 1 hard right, by the sine/cosine law
    double sourceGain = 0.0; ///< 0 for the diffuse field alone
    double fieldGain = 1.0;  ///< of each channel's independent noise
};

/// Runs the engine on scenes, block by block.
class SteeringField
{
public:
    /// thresholds  null keeps those of the engine
    SteeringField(std::uint32_t rateHz, std::uint64_t seed, const Thresholds* thresholds = nullptr);

    /// Runs one block of 64 frames.
    void run(const Scene& scene);

    const ZRKTarn& engine() const { return *ownEngine; }

private:
    std::unique_ptr<ZRKTarn> ownEngine = std::make_unique<ZRKTarn>();
    PinkNoise sourceNoise;
    PinkNoise leftNoise;
    PinkNoise rightNoise;
};

} // namespace design
