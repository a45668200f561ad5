// The mixing matrix of every group.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Interpolates the mixing matrix of every group between the four regions around its chosen position.
///
///             left (1)  middle (0)  right (-1)
///   front (1)    1          2           3
///         (0)    4          5           6
///   back (-1)    7          8           9
///
/// In   lrSlower, fbSlower [16], which hold the chosen position; regionMatrix [9][12], region 1 first
/// Out  groupMatrix [16][12], elements 0 to 5
///      elements    [6][16]   the same, transposed
///
/// Returns whether an element may be near underflow: affects speed, never results.
bool interpolateMatrices(ZRKTarn& engine, float (&elements)[6][16]) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
