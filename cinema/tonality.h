#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

// Stages that compare the strongest band and its neighbours, peak = peakRegionL + peakRegionR, with all other bands,
// rest = restL + restR.

/// Judges whether the block is one tone and, if so, measures its group by half the broadband levels instead.
///
/// A tone in group 0, whose few bands always hold a large share, needs peak > 32 rest; elsewhere peak > 8 rest does.
///
/// In      peakRegionL, peakRegionR, restL, restR, dominantGroup, levelL ... levelDiff
/// Out     tonalBlock
/// In/Out  peakL, peakR, peakSum, peakDiff of dominantGroup
void detectTonalBlock(ZRKTarn& engine) noexcept;

/// Holds the peak measures of groups whose dominant band has not changed against its slow mean; not in tonal blocks.
///
/// In      subband, subbandAvg [2][64], peakBand [16], prevPeakL ... prevPeakDiff [16], tonalBlock
/// Out     stationaryTolerance  relative: 0.001 when 4 rest < peak, else 0.0001
/// In/Out  peakL ... peakDiff [16]
void holdStationaryGroups(ZRKTarn& engine) noexcept;

/// Copies the dominant group's measures and thresholds into both neighbours of it when peak > 8 rest; otherwise group
/// 1's into group 0.
///
/// In/Out  peakL ... peakDiff, powL ... powDiff, thres, midThres, slowThres [16]
void spreadDominantGroup(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
