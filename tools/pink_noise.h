// Pink noise.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>

namespace design
{

/// Pink noise of unit power: the sum of white noises through first-order low-passes at octave distances, each with
/// twice the power density of the next higher one. The sum is 1 / f within 1.3 dB above pi / 512 and flat below.
class PinkNoise
{
public:
    explicit PinkNoise(std::uint64_t seed) : white(seed)
    {
        double power = 0.0;
        for (std::size_t k = 0; k < kOctaves; ++k) {
            const double cutoff = std::numbers::pi / static_cast<double>(1u << k); // radians per sample
            poles[k] = cutoff / (1.0 + cutoff);
            gains[k] = std::sqrt(static_cast<double>(1u << k));
            power += gains[k] * gains[k] * poles[k] / (2.0 - poles[k]) / 3.0;
        }
        for (double& gain : gains) gain /= std::sqrt(power);
    }

    double next()
    {
        double sum = 0.0;
        for (std::size_t k = 0; k < kOctaves; ++k) {
            states[k] += poles[k] * (uniform() - states[k]);
            sum += gains[k] * states[k];
        }
        return sum;
    }

private:
    static constexpr std::size_t kOctaves = 10;

    /// -1 to 1; the same on every platform, because the standard defines the generator.
    double uniform() { return static_cast<double>(white() >> 11) * 0x1p-52 - 1.0; }

    std::mt19937_64 white;
    std::array<double, kOctaves> poles{};
    std::array<double, kOctaves> gains{};
    std::array<double, kOctaves> states{};
};

} // namespace design
