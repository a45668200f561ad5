#pragma once

#include <cstdint>

namespace zrk_tarn
{

/// Copies every step-th threshold; the groups past the end of the table share its last entry.
///
/// At higher rates the bands are wider, so that a group there covers what several cover at 48 kHz.
///
/// In   table [16]  thresholds of the groups at 48 kHz
///      step        groups of the table per group of the row: 1, 2 or 4
/// Out  row   [16]  table[min(g * step, 15)]
void copyThresholds(const float (&table)[16], std::int32_t step, float (&row)[16]) noexcept;

} // namespace zrk_tarn
