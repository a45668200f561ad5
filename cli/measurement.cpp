// Measures energy shares, peaks and delay of the demo's outputs.
// SPDX-License-Identifier: MIT
#include "cli/measurement.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace tarn
{

PartMeasure measurePart(const ThreeOutputs& outputs, std::size_t firstFrame, std::size_t frames)
{
    const std::array<const std::vector<double>*, 3> order{&outputs.left, &outputs.centre, &outputs.right};
    PartMeasure measure{};
    double total = 0.0;
    for (std::size_t i = 0; i < order.size(); ++i) {
        for (const double sample : std::span(*order[i]).subspan(firstFrame, frames)) {
            measure.energyShare[i] += sample * sample;
            measure.peak[i] = std::max(measure.peak[i], std::abs(sample));
        }
        total += measure.energyShare[i];
    }
    if (total > 0.0)
        for (double& share : measure.energyShare) share /= total;
    return measure;
}

std::size_t findDelay(std::span<const double> earlier, std::span<const double> later, std::size_t maxLag)
{
    std::size_t best = 0;
    double bestMagnitude = -1.0;
    for (std::size_t lag = 0; lag <= maxLag; ++lag) {
        const auto shifted = later.subspan(lag, earlier.size());
        const double magnitude = std::abs(std::inner_product(earlier.begin(), earlier.end(), shifted.begin(), 0.0));
        if (magnitude > bestMagnitude) {
            bestMagnitude = magnitude;
            best = lag;
        }
    }
    return best;
}

} // namespace tarn
