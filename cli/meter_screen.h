// The screen of tarn meter.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/canvas.h"
#include "cli/meter_values.h"
#include "cli/terminal.h"

#include <string>
#include <vector>

namespace tarn
{

/// What a terminal can show.
struct ScreenStyle
{
    ColourMode colours = ColourMode::Plain;
    bool isUtf8 = false; ///< otherwise the bars are ASCII
};

/// The style of this process's terminal: by NO_COLOR, COLORTERM, TERM, and the locale in LC_ALL, LC_CTYPE or LANG.
ScreenStyle styleOfEnvironment();

/// The smallest screen that has room for all values.
inline constexpr ScreenSize kSmallestScreen = {.columns = 68, .rows = 20};

/// The rows of a screen, as many as its size, each as wide as it.
///
/// Name and settings; then on the left a row per band group, the highest at the top, with bars for the level in front
/// left, the centre and front right; on the right the outputs with peak, rms and held peak, loudness and limiter; last
/// the keys. Bars cover 60 dB.
std::vector<std::string> screenOf(const MeterValues& values, ScreenSize size, const ScreenStyle& style);

} // namespace tarn
