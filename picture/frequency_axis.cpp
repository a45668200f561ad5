// Positions and bands of the ERB-rate scale.
// SPDX-License-Identifier: MIT
#include "picture/frequency_axis.h"

#include <algorithm>
#include <cmath>

namespace tarn
{

namespace
{

constexpr double kTiltDbPerOctave = 3.9;

/// The ERB rate, without its factor of 21.4.
double erbRate(double frequencyHz) noexcept
{
    return std::log10(1.0 + 0.00437 * frequencyHz);
}

/// The integral of the quadratic B-spline, which has a width of three, from its left end to x.
double splineIntegral(double x) noexcept
{
    if (x <= -1.5) return 0.0;
    if (x >= 1.5) return 1.0;
    if (x < -0.5) return (x + 1.5) * (x + 1.5) * (x + 1.5) / 6.0;
    if (x > 0.5) return 1.0 - (1.5 - x) * (1.5 - x) * (1.5 - x) / 6.0;
    return 0.5 + 0.75 * x - x * x * x / 3.0;
}

} // namespace

double axisPosition(double frequencyHz) noexcept
{
    return (erbRate(frequencyHz) - erbRate(kLowestHz)) / (erbRate(kHighestHz) - erbRate(kLowestHz));
}

double axisFrequencyHz(double position) noexcept
{
    const double rate = erbRate(kLowestHz) + position * (erbRate(kHighestHz) - erbRate(kLowestHz));
    return (std::pow(10.0, rate) - 1.0) / 0.00437;
}

double tiltFactor(double frequencyHz) noexcept
{
    return std::pow(10.0, 0.1 * kTiltDbPerOctave * std::log2(frequencyHz / 1000.0));
}

FrequencyRows::FrequencyRows(std::size_t rows, double binHz, std::size_t bins)
{
    for (std::size_t row = 0; row < rows; ++row) {
        const auto count = static_cast<double>(rows);
        const double low = axisFrequencyHz(static_cast<double>(row) / count) / binHz;
        const double high = axisFrequencyHz(static_cast<double>(row + 1) / count) / binHz;
        const double tilt = tiltFactor(0.5 * (low + high) * binHz);
        const auto first = static_cast<std::size_t>(std::max(0.0, std::ceil(low - 1.5)));
        firstBin.push_back(static_cast<std::uint32_t>(first));
        firstWeight.push_back(static_cast<std::uint32_t>(weights.size()));
        for (std::size_t bin = first; bin < bins && static_cast<double>(bin) < high + 1.5; ++bin) {
            const auto centre = static_cast<double>(bin);
            const double share = (splineIntegral(high - centre) - splineIntegral(low - centre)) / (high - low);
            weights.push_back(static_cast<float>(tilt * share));
        }
    }
    firstWeight.push_back(static_cast<std::uint32_t>(weights.size()));
}

void FrequencyRows::addTo(float* sums, std::size_t stride, const float* power) const noexcept
{
    for (std::size_t row = 0; row < rows(); ++row) {
        const float* bin = power + firstBin[row];
        float sum = 0.0f;
        for (std::uint32_t i = firstWeight[row]; i < firstWeight[row + 1]; ++i) sum += weights[i] * *bin++;
        sums[row * stride] += sum;
    }
}

} // namespace tarn
