// Levels and delay of the demo's outputs.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace tarn
{

/// The outputs of a 3.0 upmix of 16-bit samples, full scale 1.
struct ThreeOutputs
{
    std::vector<double> left;
    std::vector<double> right;
    std::vector<double> centre;
};

/// Levels of a section of the outputs, in the order left, centre, right.
struct PartMeasure
{
    std::array<double, 3> energyShare; ///< of the sum of the three, 0 to 1
    std::array<double, 3> peak;        ///< full scale 1
};

/// Measures a section of the outputs. The outputs must contain the whole section.
PartMeasure measurePart(const ThreeOutputs& outputs, std::size_t firstFrame, std::size_t frames);

/// The delay of later against earlier, 0 to maxLag: the lag with the largest magnitude of cross-correlation.
///
/// later  at least maxLag samples longer than earlier
std::size_t findDelay(std::span<const double> earlier, std::span<const double> later, std::size_t maxLag);

} // namespace tarn
