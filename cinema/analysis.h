// The analysis filterbank without its transform.
// SPDX-License-Identifier: MIT
#pragma once

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Weights the newest 1024 samples with the prototype filter, one sum per polyphase branch, and then shifts the history
/// by one block. Also adds magnitudes for the levels (cinema/levels.h).
///
/// In     magnitudes [32][4]
/// In/Out history [1024]  engine scale, oldest sample first; shifted down by 64, and the newest 64 stay in place too
///        levelSums [4]   magnitudes are added, sample ascending
/// Out    branch  [128]   branch[k] = sum of lpf[k + 128 m] * history[k + 128 m], m = 0..7, before the shift
/// Order  m ascending from zero; every branch is a separate lane
void weightAndAdvance(const float (&magnitudes)[32][4], float (&history)[1024], float (&branch)[128],
                      float (&levelSums)[4]) noexcept;

/// Folds the 128 branches into the 64 inputs of the transform.
///
/// In    branch [128]  not minus zero, as the sums of weightAndAdvance
/// Out   folded [64]   (branch[n] - branch[63 - n]) + (-branch[64 + n] - branch[127 - n])
void foldBranches(const float (&branch)[128], float (&folded)[64]) noexcept;

/// Recursive mean of the subbands of past blocks, signed, with a factor of 0.9 per block. Call it before the transform
/// overwrites the subbands.
///
/// In      subband [64]  of the previous block
/// In/Out  average [64]
void averageSubbands(const float (&subband)[64], float (&average)[64]) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
