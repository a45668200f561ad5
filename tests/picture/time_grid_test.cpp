// Tables over time in constant memory.
// SPDX-License-Identifier: MIT
#include "picture/time_grid.h"

#include <gtest/gtest.h>

using tarn::TimeGrid;

namespace
{

/// Adds 1 to the first value of the column of every frame.
void addFrames(TimeGrid& grid, std::uint64_t frames, std::uint64_t step)
{
    for (std::uint64_t frame = 0; frame < frames; frame += step) {
        grid.fit(frame);
        grid.valuesAt(frame)[0] += 1.0f;
    }
}

} // namespace

TEST(TimeGrid, ShortRecordingKeepsTheFirstColumns)
{
    TimeGrid grid(2, 10, TimeGrid::Merge::Sum);
    addFrames(grid, 95, 5);
    EXPECT_EQ(grid.framesPerColumn(), 10u);
    ASSERT_EQ(grid.columns(), 10u);
    for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(grid.column(i)[0], 2.0f) << i;
    EXPECT_EQ(grid.column(9)[0], 1.0f);
    EXPECT_EQ(grid.column(9)[1], 0.0f);
}

TEST(TimeGrid, FullGridMergesPairsAndLosesNothing)
{
    for (const std::uint64_t columns : {TimeGrid::kMaxColumns, TimeGrid::kMaxColumns + 1, 5 * TimeGrid::kMaxColumns}) {
        TimeGrid grid(1, 4, TimeGrid::Merge::Sum);
        addFrames(grid, 4 * columns, 1);
        EXPECT_LE(grid.columns(), TimeGrid::kMaxColumns);
        if (columns > TimeGrid::kMaxColumns) {
            EXPECT_GT(grid.columns(), TimeGrid::kMaxColumns / 2);
        }
        double sum = 0.0;
        for (std::size_t i = 0; i < grid.columns(); ++i) {
            sum += static_cast<double>(grid.column(i)[0]);
            if (i + 1 < grid.columns()) {
                EXPECT_EQ(grid.column(i)[0], static_cast<float>(grid.framesPerColumn())) << i;
            }
        }
        EXPECT_EQ(sum, static_cast<double>(4 * columns));
    }
}

TEST(TimeGrid, MaximumKeepsTheLargerOfTwoColumns)
{
    TimeGrid grid(1, 1, TimeGrid::Merge::Maximum);
    for (std::uint64_t frame = 0; frame < 2 * TimeGrid::kMaxColumns; ++frame) {
        grid.fit(frame);
        grid.valuesAt(frame)[0] = static_cast<float>(frame);
    }
    ASSERT_EQ(grid.columns(), TimeGrid::kMaxColumns);
    for (std::size_t i = 0; i < grid.columns(); ++i) EXPECT_EQ(grid.column(i)[0], static_cast<float>(2 * i + 1));
}
