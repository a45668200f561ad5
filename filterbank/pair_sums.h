// The inputs of half-size transforms: sums of neighbours, one value at a time.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/exact_floats.h"

namespace zrk_tarn
{

/// The even-indexed half of a DCT-III's input: half[j] = in[2j], j = 0..h-1.
inline void evenEntries(const float* in, int h, float* half) noexcept
{
    for (int j = 0; j < h; ++j) half[j] = in[2 * j];
}

/// The odd-indexed half of a DCT-III's input: half[0] = in[1], half[j] = in[2j + 1] + in[2j - 1].
inline void oddNeighbourSums(const float* in, int h, float* half) noexcept
{
    half[0] = in[1];
    for (int j = 1; j < h; ++j) half[j] = in[2 * j + 1] + in[2 * j - 1];
}

/// The input of the DCT-IV half of a DCT-IV: half[j] = in[2j] + in[2j + 1], j = 0..h-1.
inline void pairSums(const float* in, int h, float* half) noexcept
{
    for (int j = 0; j < h; ++j) half[j] = in[2 * j] + in[2 * j + 1];
}

/// The input of the DCT-III half of a DCT-IV: half[0] = in[0], half[j] = in[2j - 1] + in[2j].
inline void shiftedPairSums(const float* in, int h, float* half) noexcept
{
    half[0] = in[0];
    for (int j = 1; j < h; ++j) half[j] = in[2 * j - 1] + in[2 * j];
}

} // namespace zrk_tarn
