#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Keeps the peak measures of the block before and takes the base thresholds for this block to work on.
///
/// In   peakL ... peakDiff, thresBands, midThresBands, slowThresBands [16]
/// Out  prevPeakL ... prevPeakDiff, thres, midThres, slowThres [16]
void startMeasures(ZRKTarn& engine) noexcept;

/// Finds the dominant band of every group, the one with the largest |L| + |R|, and its four measures.
///
/// In   subband [2][64], bandCount [16], which tiles 64 bands at most
/// Out  peakL, peakR, peakSum, peakDiff [16]  a group of zeros keeps those of the block before
///      peakTotal, peakBand [16]              0 and the first band for a group of zeros
void findGroupPeaks(ZRKTarn& engine) noexcept;

/// Finds the group with the largest peak: that of the largest peakL if it exceeds every peakR, else of the largest
/// peakR. Ties keep the lowest group.
///
/// In   peakL, peakR [16]
/// Out  dominantGroup
void findDominantGroup(ZRKTarn& engine) noexcept;

/// Smooths the four peak measures of every group with the power pair.
///
/// In      peakL, peakR, peakSum, peakDiff [16], power
/// In/Out  powL, powR, powSum, powDiff [16]
void smoothGroupPowers(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
