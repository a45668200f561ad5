// Tests of filterbank/vector_pair_sums.cpp.
// SPDX-License-Identifier: MIT
#include "filterbank/vector_pair_sums.h"

#include <gtest/gtest.h>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;

TEST(VectorPairSums, SplitsIntoPairSums)
{
    float x[64];
    float even[32];
    float odd[32];
    for (int n = 0; n < 64; ++n) x[n] = static_cast<float>(n * n);
    splitIntoPairSums(x, even, odd);
    EXPECT_EQ(odd[0], x[0]);
    for (int k = 0; k < 32; ++k) EXPECT_EQ(even[k], x[2 * k] + x[2 * k + 1]);
    for (int k = 1; k < 32; ++k) EXPECT_EQ(odd[k], x[2 * k - 1] + x[2 * k]);
}
