// The 64-point DCT-IV with vectors, from pair sums.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// The 64-point DCT-IV of count vectors: the values of cosModDCT4_X1 (filterbank/cos_mod.h).
///
/// In   even [count][32], odd [count][32]  pair sums and shifted pair sums (filterbank/vector_pair_sums.h)
///      stride                             values from one vector of out to the next
///      slow                               a bit for each vector near underflow: affects speed, never results
/// Out  out  [count][64]                   band 0 lowest
void transformPairSums(int count, const float (*even)[32], const float (*odd)[32], float* out, std::ptrdiff_t stride,
                       std::uint32_t slow = 0) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
