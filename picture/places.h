// Where the sounds of a spectrum are between left, centre and right.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <vector>

namespace tarn
{

/// Rows of the place panel from left to right.
inline constexpr std::size_t kPlaceSteps = 84;

/// Rows outside of left and right, into which the energy at the sides spreads.
inline constexpr std::size_t kPlaceMargin = 3;

/// Rows of the place panel.
inline constexpr std::size_t kPlaceRows = kPlaceSteps + 1 + 2 * kPlaceMargin;

/// Values of a row: the energies of left, centre and right in the bins of this place.
inline constexpr std::size_t kPlaceValues = 3;

/// The share of amplitudes, and not of powers, in the sum of two loudspeakers at a frequency: 1 at low frequencies,
/// where sounds from all sides arrive at an ear in phase, and 1/2 at 2.5 kHz.
double coherenceAt(double frequencyHz) noexcept;

/// The direction of a sound that three loudspeakers play: 0 left, 1/2 centre, 1 right.
///
/// The gains cos(a) and sin(a) of left and right are at 2 a / pi, the position of a pan with constant power. Half of
/// the power of the centre counts for each side. It adds to that of the side between powers and amplitudes.
///
/// left, centre, right  amplitudes, not all zero
/// coherence            see coherenceAt(): 0 adds powers, 1 amplitudes
float directionOf(float left, float centre, float right, float coherence) noexcept;

/// The row of a direction, between rows for most.
constexpr float rowOf(float direction) noexcept
{
    return static_cast<float>(kPlaceMargin) + static_cast<float>(kPlaceSteps) * direction;
}

/// Distributes the bins of spectra over the rows.
class Places
{
public:
    /// binHz  distance of bins
    /// count  bins of a spectrum
    Places(double binHz, std::size_t count);

    /// Adds the tilted energies of a spectrum.
    ///
    /// values               [kPlaceRows * kPlaceValues]
    /// left, centre, right  [bins] power
    void addTo(float* values, const float* left, const float* centre, const float* right) const noexcept;

private:
    /// What a bin has by its frequency.
    struct Bin
    {
        float tilt;
        float coherence;
    };

    std::size_t firstBin;
    std::vector<Bin> bins; ///< from firstBin
};

} // namespace tarn
