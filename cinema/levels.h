// Broadband levels.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

// Every level is a sum of 64 magnitudes, a chain of additions that wait for each other. It is computed beside the first
// stage that does not depend on it, weightAndAdvance.

/// The magnitudes of the newest 64 samples of inputHistory.
///
/// Out  magnitudes [sample][4]  |l|, |r|, |l + r|, |l - r|; 32 samples for each call of weightAndAdvance
void computeMagnitudes(const ZRKTarn& engine, float (&magnitudes)[2][32][4]) noexcept;

/// Sets the broadband levels of the block and smooths them.
///
/// In      sums [4]             of the magnitudes: sample ascending from zero
/// Out     levelL, levelR       mean of |l| and |r|
///         levelSum, levelDiff  mean of |l + r| and |l - r|, divided by sqrt 2
/// In/Out  avgLevelL ... avgLevelDiff, smoothed with broadbandPair
void setLevels(const float (&sums)[4], ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
