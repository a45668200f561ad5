#pragma once

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Weights the newest 1024 samples with the prototype filter, one sum per polyphase branch, and moves them on by one
/// block in the same pass.
///
/// In/Out history [1024]  engine scale, oldest sample first; moves down by 64, the newest 64 stay where they are too
/// Out    branch  [128]   branch[k] = sum of lpf[k + 128 m] * history[k + 128 m], m = 0..7, of the history as given
/// Order  m ascending from zero; every branch is its own lane, so lanes never mix
void weightAndAdvance(float (&history)[1024], float (&branch)[128]) noexcept;

/// Folds the 128 branches into the 64 inputs of the transform.
///
/// In    branch [128]
/// Out   folded [64]   (branch[n] - branch[63 - n]) + (-branch[64 + n] - branch[127 - n])
void foldBranches(const float (&branch)[128], float (&folded)[64]) noexcept;

/// The two half-size transform inputs of a 64-vector: its pair sums and its shifted pair sums.
///
/// In    x    [64]
///       tiny       whether sums may be subnormal and had better be formed gradually (lanes/gradual.h); tells the
///                  faster way only
/// Out   even [32]  x[2k] + x[2k + 1]
///       odd  [32]  x[0], then x[2k - 1] + x[2k]
void splitIntoPairSums(const float (&x)[64], float (&even)[32], float (&odd)[32], bool tiny = false) noexcept;

/// Mean of the past blocks' subbands, signed, at 0.9 per block. Runs before the block's subbands overwrite the last.
///
/// In      subband [64]  of the block before
/// In/Out  average [64]
void averageSubbands(const float (&subband)[64], float (&average)[64]) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
