// The screen of tarn meter.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/canvas.h"
#include "cli/meter_values.h"
#include "cli/screen_style.h"
#include "cli/terminal.h"

namespace tarn
{

/// The smallest screen that has room for all values.
inline constexpr ScreenSize kSmallestScreen = {.columns = 68, .rows = 20};

/// A screen of this size.
///
/// Name and settings; then on the left a row per band group, the highest at the top, with a mark between left and right
/// and a bar for the level; on the right the outputs with rms, peak and held peak, loudness, limiter and the key to the
/// colours; last the keys, below explanations if there is room. Bars cover 60 dB.
Canvas screenOf(const MeterValues& values, ScreenSize size, const ScreenStyle& style);

} // namespace tarn
