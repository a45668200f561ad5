// Runs the engine with given steering thresholds, on test scenes or on recordings.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "tools/pink_noise.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

namespace design
{

/// Number of band groups.
inline constexpr std::size_t kGroups = std::extent_v<decltype(ZRKTarn::thresBands)>;

/// Thresholds of the groups.
struct Thresholds
{
    float fast[kGroups];
    float mid[kGroups];
    float slow[kGroups];
};

/// A new engine with three outputs in the fast mode.
std::unique_ptr<ZRKTarn> makeEngine(std::uint32_t rateHz, int bits, const Thresholds& thresholds);

/// A panned source in a diffuse field of pink noise.
struct Scene
{
    double position = 0.0;   ///< 0 hard left, 0.5 centre, 1 hard right, by the sine/cosine law
    double sourceGain = 0.0; ///< relative to the independent noise of each channel; 0 for this noise alone
};

/// Runs the engine on scenes, block by block.
class SteeringField
{
public:
    SteeringField(std::uint32_t rateHz, std::uint64_t seed, const Thresholds& thresholds);

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
