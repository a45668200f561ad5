// Rows of coloured characters, and the escape sequences that show them.
// SPDX-License-Identifier: MIT
#include "cli/canvas.h"

#include "cli/character.h"

#include <algorithm>

namespace tarn
{

namespace
{

/// The parameters of the escape sequence that selects a colour, or that of the terminal.
///
/// kind  3 for the text, 4 for the background
std::string parametersOf(char kind, const std::optional<Rgb>& colour, ColourMode mode)
{
    if (!colour) return {kind, '9'};
    if (mode == ColourMode::Cube) return kind + ("8;5;" + std::to_string(cubeColour(*colour)));
    return kind + ("8;2;" + std::to_string(colour->red) + ";" + std::to_string(colour->green) + ";" +
                   std::to_string(colour->blue));
}

/// The escape sequence that changes colours.
std::string sequenceOf(const CellColours& from, const CellColours& to, ColourMode mode)
{
    if (from == to) return "";
    if (to == CellColours{}) return "\033[m";
    std::string parameters;
    if (from.text != to.text) parameters = parametersOf('3', to.text, mode);
    if (from.background != to.background)
        parameters += (parameters.empty() ? "" : ";") + parametersOf('4', to.background, mode);
    return "\033[" + parameters + "m";
}

bool lookAlike(const std::optional<Rgb>& a, const std::optional<Rgb>& b, ColourMode mode) noexcept
{
    if (a == b) return true;
    return mode == ColourMode::Cube && a && b && cubeColour(*a) == cubeColour(*b);
}

} // namespace

bool Canvas::lookAlike(const Cell& a, const Cell& b, ColourMode mode) noexcept
{
    if (a.character != b.character) return false;
    if (mode == ColourMode::Plain) return true;
    return tarn::lookAlike(a.colours.background, b.colours.background, mode) &&
           (a.character == " " || tarn::lookAlike(a.colours.text, b.colours.text, mode));
}

void Canvas::put(std::size_t row, std::size_t column, std::string_view text, const CellColours& colours)
{
    for (; !text.empty() && row < rowTotal && column < columnTotal; ++column) {
        const std::size_t bytes = std::max<std::size_t>(firstCharacter(text).bytes, 1);
        cells[row * columnTotal + column] = {.character = std::string(text.substr(0, bytes)), .colours = colours};
        text.remove_prefix(bytes);
    }
}

std::string Canvas::textOf(std::size_t row) const
{
    std::string text;
    for (std::size_t column = 0; column < columnTotal; ++column) text += cells[row * columnTotal + column].character;
    return text;
}

std::string Canvas::changesFrom(const Canvas& before, ColourMode mode) const
{
    std::string changes;
    CellColours colours;
    for (std::size_t row = 0; row < rowTotal; ++row) {
        std::optional<std::size_t> cursor; // column, if it is in this row
        for (std::size_t column = 0; column < columnTotal; ++column) {
            const Cell& cell = cells[row * columnTotal + column];
            if (lookAlike(cell, before.cells[row * columnTotal + column], mode)) continue;
            if (!cursor) {
                changes += "\033[" + std::to_string(row + 1) + ";" + std::to_string(column + 1) + "H";
            } else if (*cursor != column) {
                changes += "\033[" + std::to_string(column - *cursor) + "C";
            }
            if (mode != ColourMode::Plain) {
                CellColours wanted = cell.colours;
                if (cell.character == " ") wanted.text = colours.text; // a space shows none
                changes += sequenceOf(colours, wanted, mode);
                colours = wanted;
            }
            changes += cell.character;
            cursor = column + 1;
        }
    }
    return changes + sequenceOf(colours, {}, mode);
}

} // namespace tarn
