// Rows of coloured characters, as text with escape sequences.
// SPDX-License-Identifier: MIT
#include "cli/canvas.h"

#include "cli/character.h"

#include <algorithm>

namespace tarn
{

namespace
{

/// The escape sequence that selects a colour, or that of the terminal.
std::string sequenceOf(const std::optional<Rgb>& colour, ColourMode mode)
{
    if (!colour) return "\033[39m";
    if (mode == ColourMode::Cube) return "\033[38;5;" + std::to_string(cubeColour(*colour)) + "m";
    return "\033[38;2;" + std::to_string(colour->red) + ";" + std::to_string(colour->green) + ";" +
           std::to_string(colour->blue) + "m";
}

} // namespace

void Canvas::put(std::size_t row, std::size_t column, std::string_view text, std::optional<Rgb> colour)
{
    for (; !text.empty() && row < rowTotal && column < columns; ++column) {
        const std::size_t bytes = std::max<std::size_t>(firstCharacter(text).bytes, 1);
        cells[row * columns + column] = {.character = std::string(text.substr(0, bytes)), .colour = colour};
        text.remove_prefix(bytes);
    }
}

std::vector<std::string> Canvas::rows(ColourMode mode) const
{
    std::vector<std::string> result(rowTotal);
    for (std::size_t row = 0; row < rowTotal; ++row) {
        std::optional<Rgb> colour;
        for (std::size_t column = 0; column < columns; ++column) {
            const Cell& cell = cells[row * columns + column];
            if (mode != ColourMode::Plain && cell.colour != colour && cell.character != " ") {
                result[row] += sequenceOf(cell.colour, mode);
                colour = cell.colour;
            }
            result[row] += cell.character;
        }
    }
    return result;
}

} // namespace tarn
