// The dominant band of every group.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Finds the dominant band of every group: the band with the largest |L| + |R|. Ties keep the lowest band.
///
/// In   subband [2][64], bandCount [16] with a sum of at most 64
/// Out  peakTotal, peakBand [16]  0 and the first band for a group of zeros
void findDominantBands(ZRKTarn& engine) noexcept;

/// The dominant bands as indices of a row of subbands: 63 for an empty group after the last band, whose band is 64.
[[gnu::always_inline]] inline Ints<16> indicesOfDominantBands(const ZRKTarn& engine) noexcept
{
    const Ints<16> band = load<16>(engine.peakBand);
    const Ints<16> last = broadcast<16>(63);
    return select(band < last, band, last);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
