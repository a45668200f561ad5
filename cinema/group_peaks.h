// The peak measures of every group.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Stores the peak measures of the previous block and loads the base thresholds.
///
/// In   peakL ... peakDiff, thresBands, midThresBands, slowThresBands [16]
/// Out  prevPeakL ... prevPeakDiff, thres, midThres, slowThres [16]
void startMeasures(ZRKTarn& engine) noexcept;

/// Measures the dominant band of every group.
///
/// In      subband [2][64], peakTotal, peakBand [16]
/// In/Out  peakL, peakR, peakSum, peakDiff [16]  a group of zeros keeps the measures of the previous block
void measureGroupPeaks(ZRKTarn& engine) noexcept;

/// Finds the dominant group: the one with the largest peakL if that exceeds every peakR, else the one with the largest
/// peakR. Ties keep the lowest group.
///
/// In   peakL, peakR [16]
/// Out  dominantGroup
void findDominantGroup(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
