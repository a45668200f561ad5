// Broadband levels.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Measures the broadband levels of the block in the time domain and smooths them.
///
/// In      newest 64 samples of inputHistory
/// Out     levelL, levelR       mean of |l| and |r|
///         levelSum, levelDiff  mean of |l + r| and |l - r|, divided by sqrt 2
/// In/Out  avgLevelL ... avgLevelDiff, smoothed with broadbandPair
/// Order   sample ascending from zero, one sum per level
void measureLevels(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
