// Tests of cinema/group_peaks.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/group_peaks.h"
#include "tests/support/engine.h"
#include "tests/unit/numbered_groups.h"

#include <gtest/gtest.h>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;
using tests::numberGroups;

namespace
{

constexpr float kRoot2 = 1.4142135f;

} // namespace

TEST(GroupPeaks, MeasuresTheDominantBandOfEveryGroup)
{
    const auto engine = engineAt(48000, 16);
    engine->peakBand[8] = 13;
    engine->peakTotal[8] = 4.0f;
    engine->subband[0][13] = -3.0f;
    engine->subband[1][13] = 1.0f;
    measureGroupPeaks(*engine);
    EXPECT_EQ(engine->peakL[8], 3.0f);
    EXPECT_EQ(engine->peakR[8], 1.0f);
    EXPECT_EQ(engine->peakSum[8], 2.0f / kRoot2);
    EXPECT_EQ(engine->peakDiff[8], 4.0f / kRoot2);
}

TEST(GroupPeaks, GroupOfZerosKeepsItsMeasures)
{
    const auto engine = engineAt(48000, 16);
    numberGroups(*engine);
    const ZRKTarn before = *engine;
    measureGroupPeaks(*engine);
    for (int g = 0; g < 16; ++g) {
        EXPECT_EQ(engine->peakL[g], before.peakL[g]);
        EXPECT_EQ(engine->peakR[g], before.peakR[g]);
        EXPECT_EQ(engine->peakSum[g], before.peakSum[g]);
        EXPECT_EQ(engine->peakDiff[g], before.peakDiff[g]);
    }
}

TEST(GroupPeaks, StartStoresPreviousPeaksAndLoadsThresholds)
{
    const auto engine = engineAt(48000, 16);
    numberGroups(*engine);
    startMeasures(*engine);
    for (int g = 0; g < 16; ++g) {
        EXPECT_EQ(engine->prevPeakL[g], engine->peakL[g]);
        EXPECT_EQ(engine->prevPeakR[g], engine->peakR[g]);
        EXPECT_EQ(engine->prevPeakSum[g], engine->peakSum[g]);
        EXPECT_EQ(engine->prevPeakDiff[g], engine->peakDiff[g]);
        EXPECT_EQ(engine->thres[g], ZRKTarn::THRES_BANDS[g]);
        EXPECT_EQ(engine->midThres[g], ZRKTarn::MIDTHRES_BANDS[g]);
        EXPECT_EQ(engine->slowThres[g], ZRKTarn::SLOWTHRES_BANDS[g]);
    }
}

TEST(GroupPeaks, DominantGroupHasTheLargestPeakAndTheRightWinsATie)
{
    const auto engine = engineAt(48000, 16);
    engine->peakL[3] = 5.0f;
    engine->peakL[9] = 5.0f;
    engine->peakR[7] = 4.0f;
    findDominantGroup(*engine);
    EXPECT_EQ(engine->dominantGroup, 3);
    engine->peakR[7] = 5.0f;
    findDominantGroup(*engine);
    EXPECT_EQ(engine->dominantGroup, 7);
}
