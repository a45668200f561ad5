#pragma once

#include <cstdint>

namespace zrk_tarn
{

/// Weights the synthesis history with the prototype filter and adds it to the overlapping output blocks.
///
/// In      history     [1024]  transform outputs Y of past blocks, newest block first; only the even-numbered of its
///                             64-value slots take part
/// In/Out  overlapNow  [64]    += sum of ( Y[n + m] - Y[63 - n + m]) * lpf[n + m],      m = 0, 128, ..., 896
///         overlapNext [64]    += sum of (-Y[n + m] - Y[63 - n + m]) * lpf[n + m + 64]
/// Order   m ascending; the sum is formed first and then added
void overlapAdd(const float (&history)[1024], float (&overlapNow)[64], float (&overlapNext)[64]) noexcept;

/// Rounds the finished sums half away from zero to whole samples on the engine's scale, saturating.
///
/// In   sums   [64]
/// Out  output [64]
void roundOutput(const float (&sums)[64], std::int32_t (&output)[64]) noexcept;

} // namespace zrk_tarn
