// Where the sounds of a spectrum are between left, centre and right.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <vector>

namespace tarn
{

/// Rows of the place panel.
inline constexpr std::size_t kPlaceRows = 97;

/// Values of a row: the energies of left, centre and right in the bins of this place.
inline constexpr std::size_t kPlaceValues = 3;

/// The direction of a sound that three loudspeakers play: 0 left, 1/2 centre, 1 right.
///
/// The gains cos(a) and sin(a) of left and right are at 2 a / pi, the position of a pan with constant power. Half of
/// the power of the centre counts for each side; it adds to that of the side halfway between amplitudes, as at low
/// frequencies, and powers, as at high ones.
///
/// left, centre, right  amplitudes, not all zero
float directionOf(float left, float centre, float right) noexcept;

/// The row of a direction, between rows for most: the second is left, and the last but one is right.
constexpr float rowOf(float direction) noexcept
{
    return 1.0f + static_cast<float>(kPlaceRows - 3) * direction;
}

/// Distributes the bins of spectra over the rows.
class Places
{
public:
    Places(double binHz, std::size_t bins);

    /// Adds the tilted energies of a spectrum.
    ///
    /// values               [kPlaceRows * kPlaceValues]
    /// left, centre, right  [bins] power
    void addTo(float* values, const float* left, const float* centre, const float* right) const noexcept;

private:
    std::size_t firstBin;
    std::vector<float> tilts; ///< of the bins from firstBin
};

} // namespace tarn
