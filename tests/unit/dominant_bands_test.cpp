// Tests of cinema/dominant_bands.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/dominant_bands.h"
#include "tests/support/engine.h"

#include <gtest/gtest.h>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;

TEST(DominantBands, TiesKeepTheLowestBand)
{
    const auto engine = engineAt(48000, 16);
    engine->subband[0][52] = 5.0f;
    engine->subband[1][60] = -5.0f;
    findDominantBands(*engine);
    EXPECT_EQ(engine->peakBand[15], 52);
}

TEST(DominantBands, HaveTheLargestSumOfMagnitudes)
{
    const auto engine = engineAt(48000, 16);
    // Group 8 has bands 12 to 15.
    engine->subband[0][13] = -3.0f;
    engine->subband[1][13] = 1.0f;
    engine->subband[0][14] = 1.0f;
    engine->subband[1][14] = 2.0f;
    findDominantBands(*engine);
    EXPECT_EQ(engine->peakBand[8], 13);
    EXPECT_EQ(engine->peakTotal[8], 4.0f);
}

TEST(DominantBands, GroupsOfZerosHaveTheirFirstBand)
{
    const auto engine = engineAt(48000, 16);
    findDominantBands(*engine);
    const int firstBands[16] = {0, 1, 2, 3, 4, 6, 8, 10, 12, 16, 20, 24, 28, 36, 44, 52};
    for (int g = 0; g < 16; ++g) {
        EXPECT_EQ(engine->peakTotal[g], 0.0f);
        EXPECT_EQ(engine->peakBand[g], firstBands[g]);
    }
}
