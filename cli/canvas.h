// Rows of coloured characters, and the escape sequences that show them.
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

/// The colours of a character; none: that of the terminal.
struct CellColours
{
    std::optional<Rgb> text{};
    std::optional<Rgb> background{};

    bool operator==(const CellColours&) const = default;
};

/// A rectangle of characters, at first spaces.
class Canvas
{
public:
    Canvas() = default;
    Canvas(std::size_t columnCount, std::size_t rowCount)
        : columnTotal(columnCount), rowTotal(rowCount), cells(columnCount * rowCount)
    {}

    std::size_t columns() const noexcept { return columnTotal; }
    std::size_t rows() const noexcept { return rowTotal; }

    /// Writes a text of UTF-8 into a row. Drops what is outside.
    void put(std::size_t row, std::size_t column, std::string_view text, const CellColours& colours = {});

    /// The characters of a row.
    std::string textOf(std::size_t row) const;

    /// The escape sequences and characters that change a terminal with another canvas of the same size into this one.
    /// The colours of the terminal are its own before and after them.
    std::string changesFrom(const Canvas& before, ColourMode mode) const;

private:
    struct Cell
    {
        std::string character = " ";
        CellColours colours;
    };

    static bool lookAlike(const Cell& a, const Cell& b, ColourMode mode) noexcept;

    std::size_t columnTotal = 0;
    std::size_t rowTotal = 0;
    std::vector<Cell> cells; ///< row by row
};

} // namespace tarn
