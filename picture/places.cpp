// Distributes the energy of bins by the ratio of their outputs.
// SPDX-License-Identifier: MIT
#include "picture/places.h"

#include "picture/frequency_axis.h"

#include <algorithm>
#include <cmath>

namespace tarn
{

namespace
{

constexpr float kRootOfTwo = 1.41421356f;
constexpr float kSilence = 1e-12f; ///< power of bins that are ignored

/// Two over pi times the arctangent, for 0 to 1, with an error below 1e-5. Plain arithmetic has the same result on
/// every machine.
float quarterTurns(float ratio) noexcept
{
    const float square = ratio * ratio;
    const float series =
        0.99997726f +
        square * (-0.33262347f +
                  square * (0.19354346f + square * (-0.11643287f + square * (0.05265332f + square * -0.01172120f))));
    return 0.63661977f * ratio * series;
}

/// Weights of a row by its distance: a quadratic spline, two rows between its knots. The weights of a place's rows sum
/// to 1.
float weightAt(float distance) noexcept
{
    const float knots = 0.5f * std::abs(distance);
    const float outer = 1.5f - knots;
    return knots < 0.5f ? 0.375f - 0.5f * knots * knots : 0.25f * outer * outer;
}

} // namespace

double coherenceAt(double frequencyHz) noexcept
{
    constexpr double kEqualPartsHz = 2500.0;
    return kEqualPartsHz / (kEqualPartsHz + frequencyHz);
}

float directionOf(float left, float centre, float right, float coherence) noexcept
{
    const float power = 0.5f * centre * centre;
    const float inPhase = coherence * kRootOfTwo * centre;
    const float a = std::sqrt(left * left + power + inPhase * left);
    const float b = std::sqrt(right * right + power + inPhase * right);
    return b <= a ? quarterTurns(b / a) : 1.0f - quarterTurns(a / b);
}

Places::Places(double binHz, std::size_t count) : firstBin(static_cast<std::size_t>(std::ceil(kLowestHz / binHz)))
{
    for (std::size_t bin = firstBin; bin < count && static_cast<double>(bin) * binHz < kHighestHz; ++bin) {
        const double frequencyHz = static_cast<double>(bin) * binHz;
        bins.push_back({.tilt = static_cast<float>(tiltFactor(frequencyHz)),
                        .coherence = static_cast<float>(coherenceAt(frequencyHz))});
    }
}

void Places::addTo(float* values, const float* left, const float* centre, const float* right) const noexcept
{
    for (std::size_t i = 0; i < bins.size(); ++i) {
        const std::size_t bin = firstBin + i;
        if (left[bin] + centre[bin] + right[bin] < kSilence) continue;
        const float row =
            rowOf(directionOf(std::sqrt(left[bin]), std::sqrt(centre[bin]), std::sqrt(right[bin]), bins[i].coherence));
        const std::size_t first = static_cast<std::size_t>(row) + 1 - kPlaceMargin;
        for (std::size_t k = first; k < first + 2 * kPlaceMargin; ++k) {
            float* const value = values + k * kPlaceValues;
            const float share = bins[i].tilt * weightAt(row - static_cast<float>(k));
            value[0] += share * left[bin];
            value[1] += share * centre[bin];
            value[2] += share * right[bin];
        }
    }
}

} // namespace tarn
