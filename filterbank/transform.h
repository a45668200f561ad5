// The 64-point DCT-IV with vectors, from pair sums.
// SPDX-License-Identifier: MIT
#pragma once

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// The 64-point DCT-IV of kCount vectors: the values of cosModDCT4_X1 (filterbank/cos_mod.h).
///
/// In   even [kCount][32], odd [kCount][32]  pair sums and shifted pair sums (filterbank/vector_pair_sums.h)
///      mayBeSubnormal                       whether products may be subnormal: affects speed, never results
/// Out  out  [kCount][64]                    band 0 lowest; kStride values from one vector to the next
template <int kCount, int kStride>
void transformPairSums(const float (*even)[32], const float (*odd)[32], float* out,
                       bool mayBeSubnormal = false) noexcept;

extern template void transformPairSums<1, 1024>(const float (*)[32], const float (*)[32], float*, bool) noexcept;
extern template void transformPairSums<2, 64>(const float (*)[32], const float (*)[32], float*, bool) noexcept;
extern template void transformPairSums<3, 1024>(const float (*)[32], const float (*)[32], float*, bool) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
