// The synthesis filterbank without its transform.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Weights the synthesis history with the prototype filter, adds the results to the overlapping output blocks, and then
/// shifts history and overlap by one block.
///
/// In/Out  history     [1024]  transform outputs Y of past blocks, newest block first, in slots of 64 values; only even
///                             slots are weighted. Shifted up by 64, and the newest 64 values stay in place too
///         overlapNow  [64]    overlapNext + sum of (-Y[n + m] - Y[63 - n + m]) * lpf[n + m + 64], m = 0, 128, ..., 896
///         overlapNext [64]    zero afterwards
/// Out     sums        [64]    overlapNow before the shift + sum of (Y[n + m] - Y[63 - n + m]) * lpf[n + m]
/// Order   m ascending from zero; the complete sum is added to the overlap
void overlapAddAndAdvance(float (&history)[1024], float (&overlapNow)[64], float (&overlapNext)[64],
                          float (&sums)[64]) noexcept;

/// Rounds the sums to integers, engine scale, half away from zero, with saturation.
///
/// In   sums   [64]
/// Out  output [64]
void roundOutput(const float (&sums)[64], std::int32_t (&output)[64]) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
