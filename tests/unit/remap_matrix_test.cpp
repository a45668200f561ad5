// Tests of engine/remap_matrix.cpp.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(RemapMatrix, ListsNonZeroTermsInRowOrder)
{
    ZRKTarn engine;
    int coeff[3][4] = {{11, 0, 0, 5}, {0, 0, -7, 6}, {13, 0, 0, 7}};
    EXPECT_EQ(engine.SetRemapCoeff(coeff), 0u);
    EXPECT_EQ(engine.remapTermCount[0], 2u);
    EXPECT_EQ(engine.remapTermGain[0][0], 11);
    EXPECT_EQ(engine.remapTermSource[0][0], 0u);
    EXPECT_EQ(engine.remapTermGain[0][1], 13);
    EXPECT_EQ(engine.remapTermSource[0][1], 2u);
    EXPECT_EQ(engine.remapTermCount[1], 0u);
    EXPECT_EQ(engine.remapTermCount[2], 1u);
    EXPECT_EQ(engine.remapTermSource[2][0], 1u);
    EXPECT_EQ(engine.remapTermCount[3], 3u);
    EXPECT_TRUE(std::equal(&coeff[0][0], &coeff[0][0] + 12, &engine.remapCoeff[0][0]));
}

TEST(RemapMatrix, TermsAfterTheCountKeepTheirValues)
{
    ZRKTarn engine;
    int full[3][4] = {{1, 0, 0, 0}, {2, 0, 0, 0}, {3, 0, 0, 0}};
    int single[3][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}, {9, 0, 0, 0}};
    engine.SetRemapCoeff(full);
    engine.SetRemapCoeff(single);
    EXPECT_EQ(engine.remapTermCount[0], 1u);
    EXPECT_EQ(engine.remapTermGain[0][0], 9);
    EXPECT_EQ(engine.remapTermGain[0][1], 2);
    EXPECT_EQ(engine.remapTermSource[0][2], 2u);
}
