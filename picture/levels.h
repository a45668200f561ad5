// Levels of powers in decibels, and the level that a picture shows as its brightest.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarn
{

/// The level of silence.
inline constexpr float kSilentDb = -200.0f;

/// The level of a power in dB, with an error below 0.01 dB. Plain arithmetic has the same result on every machine.
float levelOf(float power) noexcept;

/// The distribution of levels.
class LevelHistogram
{
public:
    /// Counts a power; ignores those below -120 dB.
    void add(float power) noexcept;

    /// The level that a share of the counted powers exceeds; kSilentDb if nothing was counted.
    float exceededBy(double share) const noexcept;

private:
    static constexpr float kLowestDb = -120.0f;
    static constexpr float kStepDb = 0.25f;

    std::array<std::uint64_t, 640> counts{};
    std::uint64_t total = 0;
};

} // namespace tarn
