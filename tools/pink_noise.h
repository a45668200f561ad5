// Pink noise.
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
    explicit PinkNoise(std::uint64_t seed) : white_(seed)
    {
        double power = 0.0;
        for (std::size_t k = 0; k < kOctaves; ++k) {
            const double cutoff = std::numbers::pi / static_cast<double>(1u << k); // radians per sample
            pole_[k] = cutoff / (1.0 + cutoff);
            gain_[k] = std::sqrt(static_cast<double>(1u << k));
            power += gain_[k] * gain_[k] * pole_[k] / (2.0 - pole_[k]) / 3.0;
        }
        for (double& gain : gain_) gain /= std::sqrt(power);
    }

    double next()
    {
        double sum = 0.0;
        for (std::size_t k = 0; k < kOctaves; ++k) {
            state_[k] += pole_[k] * (uniform() - state_[k]);
            sum += gain_[k] * state_[k];
        }
        return sum;
    }

private:
    static constexpr std::size_t kOctaves = 10;

    /// -1 to 1; the same on every platform, because the standard defines the generator.
    double uniform() { return static_cast<double>(white_() >> 11) * 0x1p-52 - 1.0; }

    std::mt19937_64 white_;
    std::array<double, kOctaves> pole_{};
    std::array<double, kOctaves> gain_{};
    std::array<double, kOctaves> state_{};
};

} // namespace design
