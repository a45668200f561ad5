// Comparisons of smoothing pairs and band counts.
// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace tests
{

using Pair = float[2];

inline void expectPair(const Pair& pair, const Pair& expected)
{
    EXPECT_EQ(pair[0], expected[0]);
    EXPECT_EQ(pair[1], expected[1]);
}

inline void expectCounts(const std::int32_t (&counts)[16], const std::int32_t (&expected)[16])
{
    EXPECT_TRUE(std::equal(std::begin(counts), std::end(counts), std::begin(expected)));
}

} // namespace tests
