// The tables of the summary: a column per engine or instruction set.
// SPDX-License-Identifier: MIT
#include "bench/speed/table.h"

#include <cstdio>

namespace speed
{

void printHead(const char* title, const std::vector<Column>& columns)
{
    std::printf("\n%-34s", title);
    for (const Column& column : columns) std::printf("%12s", column.name.c_str());
    std::printf("\n");
}

void printMedians(const char* name, const std::vector<Column>& columns, std::size_t median)
{
    std::printf("%-34s", name);
    for (const Column& column : columns) std::printf("%12.0f", column.medians[median]);
    std::printf("\n");
}

void printRatio(const Ratio& ratio, const std::vector<Column>& columns)
{
    std::printf("%-34s", ratio.name);
    for (const Column& column : columns)
        std::printf("%12.2f", column.medians[ratio.dividend] / column.medians[ratio.divisor]);
    std::printf("\n");
}

} // namespace speed
