// Tonal blocks, stationary groups, and the neighbours of the dominant group.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

// These stages compare peak = peakRegionL + peakRegionR, the strongest band and its neighbours, with rest = restL +
// restR, all other bands.

/// Detects a tonal block, and then sets the peak measures of the dominant group to half the broadband levels.
///
/// A block is tonal if peak > 8 rest, or peak > 32 rest if the dominant group is 0, whose few bands always hold a large
/// share.
///
/// In      peakRegionL, peakRegionR, restL, restR, dominantGroup, levelL ... levelDiff
/// Out     tonalBlock
/// In/Out  peakL, peakR, peakSum, peakDiff of dominantGroup
void detectTonalBlock(ZRKTarn& engine) noexcept;

/// Restores the previous peak measures of groups whose dominant band is close to its slow mean; not in tonal blocks.
///
/// In      subband, subbandAvg [2][64], peakBand [16], prevPeakL ... prevPeakDiff [16], tonalBlock
/// Out     stationaryTolerance  relative: 0.001 when 4 rest < peak, else 0.0001
/// In/Out  peakL ... peakDiff [16]
void holdStationaryGroups(ZRKTarn& engine) noexcept;

/// Copies measures and thresholds: if peak > 8 rest, from the dominant group to both neighbours; otherwise from group 1
/// to group 0.
///
/// In/Out  peakL ... peakDiff, powL ... powDiff, thres, midThres, slowThres [16]
void spreadDominantGroup(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
