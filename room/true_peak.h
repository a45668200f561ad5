// The true peak of a block.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/peak_window.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// The true peak by ITU-R BS.1770-4, annex 2: the largest magnitude of the samples and of values between them, which an
/// interpolation filter with 4 phases of 12 taps computes. Order of each sum: taps ascending from zero.
///
/// In   window  the filter is centred between samples n + 5 and n + 6, n = 0..63
///      rows    that are in use
///
/// Returns the peak if it is at least floor. If it is below, returns a value below floor.
float findTruePeak(const PeakWindow& window, std::int32_t rows, float floor) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
