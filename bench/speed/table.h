// The tables of the summary: a column per engine or instruction set.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace speed
{

/// The figures of one engine.
struct Column
{
    std::string name;
    std::vector<double> medians; ///< ticks per block
};

/// A ratio of two medians, by their indices.
struct Ratio
{
    const char* name;
    std::size_t dividend;
    std::size_t divisor;
};

/// Prints an empty line, the title and the names of the columns.
void printHead(const char* title, const std::vector<Column>& columns);

/// Prints one median of every column.
void printMedians(const char* name, const std::vector<Column>& columns, std::size_t median);

/// Prints a ratio for every column.
void printRatio(const Ratio& ratio, const std::vector<Column>& columns);

} // namespace speed
