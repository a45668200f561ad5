// Bars of block characters on a canvas.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/canvas.h"
#include "cli/screen_style.h"

#include <cstddef>
#include <string_view>

namespace tarn
{

/// Where a bar is, and how it is drawn: in eighths of a character with UTF-8, else in characters.
struct BarPlace
{
    Canvas& canvas;
    const ScreenStyle& style;
    std::size_t row;
    std::size_t column; ///< first
    std::size_t width;  ///< characters
};

/// The character of a full cell.
std::string_view fullCell(const ScreenStyle& style) noexcept;

/// Draws an empty bar.
void drawTrack(const BarPlace& place);

/// Draws a character over a cell of a bar.
void drawCell(const BarPlace& place, std::size_t cell, std::string_view character, Rgb colour);

/// Draws a bar from the left over a part of the width, 0 to 1.
void drawBar(const BarPlace& place, double part, Rgb colour);

/// Draws a bright bar, and behind its end a dark one, both from the left.
///
/// bright, dark  parts of the width, 0 to 1
void drawDoubleBar(const BarPlace& place, double bright, double dark, Rgb brightColour, Rgb darkColour);

/// Draws a mark from one point of the width to another, 0 to 1, in halves of a character with UTF-8. It is at least one
/// character wide.
void drawMark(const BarPlace& place, double from, double to, Rgb colour);

} // namespace tarn
