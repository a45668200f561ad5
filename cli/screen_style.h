// What the terminal can show.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/canvas.h"

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

} // namespace tarn
