// The window of the limiter and its true peak.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/peak_window.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Moves the window on by a block.
///
/// In   rows   [count], the block
///      scale  makes full scale 1
void advancePeakWindow(PeakWindow& window, const UnroundedRow* rows, std::size_t count, double scale) noexcept;

/// The true peak by ITU-R BS.1770-4, annex 2: the largest magnitude of the samples and of values between them, which an
/// interpolation filter with 4 phases of 12 taps computes. Order of each sum: taps ascending from zero.
///
/// In   window  the filter is centred between samples n + 5 and n + 6, n = 0..63
///      rows    that are in use
///
/// Returns the peak if it is at least floor. If it is below, returns a value below floor.
float findTruePeak(const PeakWindow& window, std::int32_t rows, float floor) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
