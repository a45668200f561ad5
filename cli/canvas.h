// Rows of coloured characters, as text with escape sequences.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/meter_colour.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn
{

/// The colours that a terminal has.
enum class ColourMode : std::uint8_t
{
    Plain,
    Cube, ///< 256 colours
    Full  ///< 24 bits
};

/// A rectangle of characters, at first spaces.
class Canvas
{
public:
    Canvas(std::size_t columnCount, std::size_t rowCount)
        : columns(columnCount), cells(columnCount * rowCount), rowTotal(rowCount)
    {}

    /// Writes a text of UTF-8 into a row. Drops what is outside.
    void put(std::size_t row, std::size_t column, std::string_view text, std::optional<Rgb> colour = std::nullopt);

    /// The rows, each as wide as the canvas. Colours apply to single characters; other characters have the colour of
    /// the terminal.
    std::vector<std::string> rows(ColourMode mode) const;

private:
    struct Cell
    {
        std::string character = " ";
        std::optional<Rgb> colour;
    };

    std::size_t columns;
    std::vector<Cell> cells; ///< row by row
    std::size_t rowTotal;
};

} // namespace tarn
