#pragma once

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// The 64-point DCT-IV of vectors given by their pair sums, kCount of them: cosModDCT4_X1 (filterbank/cos_mod.h) with
/// its outputs formed side by side, bit for bit the same.
///
/// In   even [kCount][32], odd [kCount][32]  pair sums and shifted pair sums, as splitIntoPairSums forms them
///      tiny                                 whether products may be subnormal and had better be formed gradually
///                                           (lanes/gradual.h); tells the faster way only
/// Out  out  [kCount][64]                    band 0 lowest; kStride values from one vector to the next
template <int kCount, int kStride>
void transformPairSums(const float (*even)[32], const float (*odd)[32], float* out, bool tiny = false) noexcept;

extern template void transformPairSums<2, 64>(const float (*)[32], const float (*)[32], float*, bool) noexcept;
extern template void transformPairSums<3, 1024>(const float (*)[32], const float (*)[32], float*, bool) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
