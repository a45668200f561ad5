// The thresholds of a sample rate.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zrk_tarn
{

/// Copies every step-th threshold; groups past the end of the table get its last entry.
///
/// At higher rates bands are wider, so one group covers the frequencies of several groups at 48 kHz.
///
/// In   table [16]  thresholds of the groups at 48 kHz
///      step        groups of the table per group of the row: 1, 2 or 4
/// Out  row   [16]  table[min(g * step, 15)]
void copyThresholds(const float (&table)[16], std::int32_t step, float (&row)[16]) noexcept;

} // namespace zrk_tarn
