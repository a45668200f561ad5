// A table over time for recordings of unknown length, in constant memory.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn
{

/// Columns of equal length, each with some values. If the columns are used up, neighbours are merged in pairs, and all
/// columns become twice as long. The result depends only on the last frame that was asked for.
class TimeGrid
{
public:
    /// Number of columns that a grid never exceeds. A long recording uses at least half of them.
    static constexpr std::size_t kMaxColumns = 3072;

    /// How two columns become one.
    enum class Merge
    {
        Sum,
        Maximum
    };

    /// values       in a column; zero at first
    /// firstFrames  length of a column at first
    TimeGrid(std::size_t values, std::uint64_t firstFrames, Merge merge);

    /// Makes the columns long enough for a frame. Returns the length of a column in frames.
    std::uint64_t fit(std::uint64_t frame);

    /// The values of the column that contains a frame, after fit(frame).
    float* valuesAt(std::uint64_t frame);

    /// The values of a column. index < columns()
    const float* column(std::size_t index) const noexcept { return table.data() + index * perColumn; }

    std::size_t columns() const noexcept { return used; }
    std::size_t values() const noexcept { return perColumn; }
    std::uint64_t framesPerColumn() const noexcept { return length; }

private:
    void mergePairs();

    std::vector<float> table; ///< column by column
    std::size_t perColumn;
    std::size_t used = 0; ///< columns
    std::uint64_t length; ///< of a column, frames
    Merge rule;
};

} // namespace tarn
