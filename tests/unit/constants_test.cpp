// Tests of engine/constants.cpp and engine/thresholds.cpp.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"
#include "tests/unit/expect_rows.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>

using tests::expectCounts;
using tests::Pair;

TEST(Constants, SmoothingPairsHaveTheirBits)
{
    const auto bits = [](const Pair& pair) {
        return std::pair{std::bit_cast<std::uint32_t>(pair[0]), std::bit_cast<std::uint32_t>(pair[1])};
    };
    EXPECT_EQ(bits(ZRKTarn::POWER), std::pair(0x3d4ccccdu, 0x3f733333u));
    EXPECT_EQ(bits(ZRKTarn::SLOWER), std::pair(0x3b03126fu, 0x3f7f7ceeu));
    EXPECT_EQ(bits(ZRKTarn::SLOW), std::pair(0x3c03126fu, 0x3f7df3b6u));
    EXPECT_EQ(bits(ZRKTarn::MID), std::pair(0x3ccccccdu, 0x3f79999au));
    EXPECT_EQ(bits(ZRKTarn::FAST), std::pair(0x3dcccccdu, 0x3f666666u));
}

TEST(Constants, EveryBandGroupingHas64Bands)
{
    for (const auto& counts :
         {ZRKTarn::LOOP_COUNT48, ZRKTarn::LOOP_COUNT64, ZRKTarn::LOOP_COUNT96, ZRKTarn::LOOP_COUNT192})
        EXPECT_EQ(std::accumulate(counts, counts + 16, 0), 64);
}

TEST(Constants, BandGroupingsHaveTheirValues)
{
    expectCounts(ZRKTarn::LOOP_COUNT48, {1, 1, 1, 1, 2, 2, 2, 2, 4, 4, 4, 4, 8, 8, 8, 12});
    expectCounts(ZRKTarn::LOOP_COUNT64, {1, 1, 1, 1, 1, 1, 2, 2, 2, 4, 4, 4, 4, 8, 8, 20});
    expectCounts(ZRKTarn::LOOP_COUNT96, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 4, 6, 10, 32});
    expectCounts(ZRKTarn::LOOP_COUNT192, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 48});
}

TEST(Constants, SteeringThresholdsHaveTheirValues)
{
    for (int g = 0; g < 16; ++g) {
        EXPECT_EQ(ZRKTarn::THRES_BANDS[g], g < 2 ? 0.74f : 0.66f) << "group " << g;
        EXPECT_EQ(ZRKTarn::MIDTHRES_BANDS[g], g < 2 ? 0.73f : 0.65f) << "group " << g;
        EXPECT_EQ(ZRKTarn::SLOWTHRES_BANDS[g], g < 2 ? 0.69f : 0.64f) << "group " << g;
    }
}

TEST(Constants, DescribeTheInternalFormat)
{
    EXPECT_EQ(ZRKTarn::INTERNAL_BIT_DEPTH, 32);
    EXPECT_EQ(ZRKTarn::INTERNAL_SAMPLE_CEILING, 0x7fffffff);
    EXPECT_EQ(ZRKTarn::INTERNAL_SAMPLE_FLOOR, std::numeric_limits<std::int32_t>::min());
}
