// The inputs of half-size transforms with vectors.
// SPDX-License-Identifier: MIT
#pragma once

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Computes the inputs of the two half-size transforms: pair sums and shifted pair sums.
///
/// In    x    [64]
///       mayBeSubnormal  whether sums may be subnormal: affects speed, never results
/// Out   even [32]  x[2k] + x[2k + 1]
///       odd  [32]  x[0], then x[2k - 1] + x[2k]
void splitIntoPairSums(const float (&x)[64], float (&even)[32], float (&odd)[32], bool mayBeSubnormal = false) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
