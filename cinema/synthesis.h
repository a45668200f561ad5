#pragma once

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Weights the synthesis history with the prototype filter, adds it to the overlapping output blocks and moves it on
/// by one block in the same pass.
///
/// In/Out  history     [1024]  transform outputs Y of past blocks, newest block first; moves up by 64, the newest 64
///                             stay where they are too. Only the even-numbered of its 64-value slots take part
///         overlapNow  [64]    += sum of ( Y[n + m] - Y[63 - n + m]) * lpf[n + m],      m = 0, 128, ..., 896
///         overlapNext [64]    += sum of (-Y[n + m] - Y[63 - n + m]) * lpf[n + m + 64]
/// Order   m ascending from zero; the sum is formed first and then added
void overlapAddAndAdvance(float (&history)[1024], float (&overlapNow)[64], float (&overlapNext)[64]) noexcept;

/// Rounds the finished sums half away from zero to whole samples on the engine's scale, saturating.
///
/// In   sums   [64]
/// Out  output [64]
void roundOutput(const float (&sums)[64], std::int32_t (&output)[64]) noexcept;

/// Moves the overlapping output blocks on by one: overlapNow takes overlapNext, which is cleared.
void advanceOverlap(float (&overlapNow)[64], float (&overlapNext)[64]) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
