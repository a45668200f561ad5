// The frequency axis of a spectrogram: equal steps of the ERB-rate scale.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn
{

inline constexpr double kLowestHz = 30.0;
inline constexpr double kHighestHz = 18000.0;

/// Place of a frequency on the axis: 0 at kLowestHz, 1 at kHighestHz. The scale is the ERB rate of Glasberg and Moore
/// (1990).
double axisPosition(double frequencyHz) noexcept;

/// The frequency of a place on the axis.
double axisFrequencyHz(double position) noexcept;

/// The factor of a power at a frequency: 3.9 dB more per octave, and 1 at 1 kHz. It makes the long-term spectrum of
/// music about flat.
double tiltFactor(double frequencyHz) noexcept;

/// Sums the bins of a power spectrum into rows of equal height on the axis.
///
/// A row is the mean of the spectrum over its band, where the spectrum between bins is a quadratic spline. Low rows are
/// narrower than a bin; high rows have several bins.
class FrequencyRows
{
public:
    /// binHz  distance of bins
    /// bins   of a spectrum; frequencies beyond them have no power
    FrequencyRows(std::size_t rows, double binHz, std::size_t bins);

    std::size_t rows() const noexcept { return firstBin.size(); }

    /// Adds a tilted spectrum to rows, the lowest frequency first.
    ///
    /// power   [bins]
    /// stride  distance of the rows in sums
    void addTo(float* sums, std::size_t stride, const float* power) const noexcept;

private:
    std::vector<std::uint32_t> firstBin;    ///< of each row
    std::vector<std::uint32_t> firstWeight; ///< of each row, and the end of the last
    std::vector<float> weights;
};

} // namespace tarn
