// The dominant band of every group.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Finds the dominant band of every group: the band with the largest |L| + |R|. Ties keep the lowest band.
///
/// In   subband [2][64], bandCount [16] with a sum of at most 64
/// Out  peakTotal, peakBand [16]  0 and the first band for a group of zeros
void findDominantBands(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
