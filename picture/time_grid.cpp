// Merges columns of time in pairs.
// SPDX-License-Identifier: MIT
#include "picture/time_grid.h"

#include <algorithm>

namespace tarn
{

TimeGrid::TimeGrid(std::size_t values, std::uint64_t firstFrames, Merge merge)
    : table(values * kMaxColumns), perColumn(values), length(firstFrames), rule(merge)
{}

std::uint64_t TimeGrid::fit(std::uint64_t frame)
{
    while (frame / length >= kMaxColumns) mergePairs();
    return length;
}

float* TimeGrid::valuesAt(std::uint64_t frame)
{
    const auto index = static_cast<std::size_t>(frame / length);
    used = std::max(used, index + 1);
    return table.data() + index * perColumn;
}

void TimeGrid::mergePairs()
{
    const std::size_t pairs = (used + 1) / 2;
    for (std::size_t pair = 0; pair < pairs; ++pair) {
        float* const merged = table.data() + pair * perColumn;
        const float* const first = table.data() + 2 * pair * perColumn;
        const bool isWhole = 2 * pair + 1 < used;
        const float* const second = isWhole ? first + perColumn : first;
        for (std::size_t i = 0; i < perColumn; ++i) {
            if (!isWhole) {
                merged[i] = first[i];
            } else {
                merged[i] = rule == Merge::Sum ? first[i] + second[i] : std::max(first[i], second[i]);
            }
        }
    }
    std::fill(table.begin() + static_cast<std::ptrdiff_t>(pairs * perColumn), table.end(), 0.0f);
    used = pairs;
    length *= 2;
}

} // namespace tarn
