// Mixes subbands with the matrices of their groups.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Mixes the left and right subbands into front left, front right and centre with the matrix of their group.
///
/// The gain of the fronts falls from 1.5 for a centred group to 1 for a fully panned one; the gain of the centre is 1.
///
/// In   subband [2][64], groupMatrix [16][12], lrSlower [16], bandCount [16] with a sum of at most 64
///      elements    [6][16]  elements 0 to 5 of groupMatrix, transposed
///      mayBeSubnormal       whether an element may be near underflow: affects speed, never results
/// Out  outSubband [3][64]  bands past the last group keep their values
///      mixCoeff [6]        those of the last group
///
/// Returns which rows of outSubband are near underflow, a bit for each: affects only the speed of the transform, never
/// results.
std::uint32_t mixSubbands(ZRKTarn& engine, const float (&elements)[6][16], bool mayBeSubnormal = false) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
