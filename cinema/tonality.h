// Tonal blocks, stationary groups, and the neighbours of the dominant group.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

// These stages compare two sums of magnitudes: peak = peakRegionL + peakRegionR, of the strongest band and its
// neighbours, and rest = restL + restR, of all other bands.

/// Detects a tonal block. In a tonal block, sets the peak measures of the dominant group to half the broadband levels.
///
/// A block is tonal if peak > 8 rest. If the dominant group is 0, it is tonal only if peak > 32 rest, because the few
/// bands of this group always hold a large share.
///
/// In      peakRegionL, peakRegionR, restL, restR, dominantGroup, levelL ... levelDiff
/// Out     tonalBlock
/// In/Out  peakL, peakR, peakSum, peakDiff of dominantGroup
void detectTonalBlock(ZRKTarn& engine) noexcept;

/// Restores the previous peak measures of groups whose dominant band is close to its slow mean, except in tonal blocks.
///
/// In      subband, subbandAvg [2][64], peakBand [16], prevPeakL ... prevPeakDiff [16], tonalBlock
/// Out     stationaryTolerance  relative: 0.001 when 4 rest < peak, else 0.0001
/// In/Out  peakL ... peakDiff [16]
void holdStationaryGroups(ZRKTarn& engine) noexcept;

/// Copies measures and thresholds. If peak > 8 rest, copies from the dominant group to both neighbours; otherwise from
/// group 1 to group 0.
///
/// In/Out  peakL ... peakDiff, powL ... powDiff, thres, midThres, slowThres [16]
void spreadDominantGroup(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
