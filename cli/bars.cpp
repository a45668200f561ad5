// Bars of block characters on a canvas.
// SPDX-License-Identifier: MIT
#include "cli/bars.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tarn
{

namespace
{

constexpr std::size_t kEighths = 8; ///< of a character
constexpr std::array<std::string_view, kEighths + 1> kBlocks{" ", "▏", "▎", "▍", "▌", "▋", "▊", "▉", "█"};
constexpr Rgb kTrack = {32, 36, 42};

/// A part of a width in steps.
std::size_t stepsOf(double part, std::size_t steps)
{
    return static_cast<std::size_t>(std::lround(std::clamp(part, 0.0, 1.0) * static_cast<double>(steps)));
}

void putCell(const BarPlace& place, std::size_t cell, std::string_view character, Rgb colour, Rgb background = kTrack)
{
    place.canvas.put(place.row, place.column + cell, character, {.text = colour, .background = background});
}

/// Eighths of a cell that a length from the left fills.
std::size_t eighthsIn(std::size_t cell, std::size_t length) noexcept
{
    return std::clamp(length, kEighths * cell, kEighths * (cell + 1)) - kEighths * cell;
}

} // namespace

std::string_view fullCell(const ScreenStyle& style) noexcept
{
    return style.isUtf8 ? "█" : "#";
}

void drawTrack(const BarPlace& place)
{
    for (std::size_t cell = 0; cell < place.width; ++cell) putCell(place, cell, " ", kTrack);
}

void drawCell(const BarPlace& place, std::size_t cell, std::string_view character, Rgb colour)
{
    putCell(place, cell, character, colour);
}

void drawBar(const BarPlace& place, double part, Rgb colour)
{
    drawDoubleBar(place, part, 0.0, colour, colour);
}

void drawDoubleBar(const BarPlace& place, double bright, double dark, Rgb brightColour, Rgb darkColour)
{
    drawTrack(place);
    if (!place.style.isUtf8) {
        const std::size_t end = stepsOf(bright, place.width);
        for (std::size_t cell = 0; cell < end; ++cell) putCell(place, cell, "#", brightColour);
        for (std::size_t cell = end; cell < stepsOf(dark, place.width); ++cell) putCell(place, cell, "=", darkColour);
        return;
    }
    const bool hasColours = place.style.colours != ColourMode::Plain;
    const std::size_t end = stepsOf(bright, kEighths * place.width);
    const std::size_t darkEnd = stepsOf(dark, kEighths * place.width);
    for (std::size_t cell = 0; cell < place.width; ++cell) {
        const std::size_t inBright = eighthsIn(cell, end);
        const std::size_t inDark = eighthsIn(cell, darkEnd);
        if (inBright > 0) {
            putCell(place, cell, kBlocks[inBright], brightColour, inDark == kEighths ? darkColour : kTrack);
        } else if (hasColours) {
            putCell(place, cell, kBlocks[inDark], darkColour);
        } else if (2 * inDark >= kEighths) {
            putCell(place, cell, "▒", darkColour);
        }
    }
}

void drawMark(const BarPlace& place, double from, double to, Rgb colour)
{
    const std::size_t perCell = place.style.isUtf8 ? 2 : 1;
    const std::size_t begin = stepsOf(from, perCell * (place.width - 1));
    const std::size_t end = stepsOf(to, perCell * (place.width - 1)) + perCell;
    for (std::size_t cell = begin / perCell; cell * perCell < end; ++cell) {
        const bool hasStart = perCell * cell >= begin;
        const bool hasEnd = perCell * (cell + 1) <= end;
        putCell(place, cell, hasStart && hasEnd ? fullCell(place.style) : hasEnd ? "▐" : "▌", colour);
    }
}

} // namespace tarn
