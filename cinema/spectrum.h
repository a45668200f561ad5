// The sum of subband magnitudes and the share of the strongest bands.
// SPDX-License-Identifier: MIT
#pragma once

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Smooths the sum of a channel's subband magnitudes, and the magnitude of the strongest band and its neighbours.
///
/// In      subband    [64]  of this block
/// In/Out  spectrum         smoothed sum of magnitudes, 0.9 per block
///         peakRegion       smoothed magnitude of the strongest band and its neighbours; ties keep the lowest band
/// Out     rest             spectrum - peakRegion
/// Order   band ascending; adds a tenth of every magnitude, each addition in double and rounded to single
void trackSpectrum(const float (&subband)[64], float& spectrum, float& peakRegion, float& rest) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
