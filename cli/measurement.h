#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace tarn
{

/// The outputs of a 3.0 upmix of 16-bit samples, in units of full scale.
struct ThreeOutputs
{
    std::vector<double> left;
    std::vector<double> right;
    std::vector<double> centre;
};

/// What a stretch of the outputs holds, in the order left, centre, right.
struct PartMeasure
{
    std::array<double, 3> energyShare; ///< of the sum of the three, 0 to 1
    std::array<double, 3> peak;        ///< in units of full scale
};

/// Measures a stretch of the outputs; they must be as long as that.
PartMeasure measurePart(const ThreeOutputs& outputs, std::size_t firstFrame, std::size_t frames);

/// The lag, 0 to maxLag, at which later follows earlier: where their cross-correlation has its largest magnitude.
///
/// later  has at least maxLag samples more than earlier
std::size_t findDelay(std::span<const double> earlier, std::span<const double> later, std::size_t maxLag);

} // namespace tarn
