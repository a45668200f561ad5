// Tests of cinema/tonality.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/tonality.h"
#include "tests/support/engine.h"
#include "tests/unit/numbered_groups.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;
using tests::holdsGroup;
using tests::numberGroups;

namespace
{

/// An engine with a given peak region, rest and dominant group.
std::unique_ptr<ZRKTarn> balanced(float peak, float rest, int dominant)
{
    auto engine = engineAt(48000, 16);
    engine->peakRegionL = peak;
    engine->restR = rest;
    engine->dominantGroup = dominant;
    engine->levelL = 2.0f;
    engine->levelR = 4.0f;
    engine->levelSum = 6.0f;
    engine->levelDiff = 8.0f;
    numberGroups(*engine);
    return engine;
}

} // namespace

TEST(Tonality, TonalNeedsEightTimesTheRestAnd32TimesInGroup0)
{
    const auto isTonal = [](float peak, int dominant) {
        const auto engine = balanced(peak, 1.0f, dominant);
        detectTonalBlock(*engine);
        return engine->tonalBlock;
    };
    EXPECT_EQ(isTonal(8.0f, 5), 0);
    EXPECT_EQ(isTonal(8.001f, 5), 1);
    EXPECT_EQ(isTonal(8.001f, 0), 0);
    EXPECT_EQ(isTonal(32.0f, 0), 0);
    EXPECT_EQ(isTonal(32.01f, 0), 1);
}

TEST(Tonality, TonalBlockSetsDominantGroupToHalfTheBroadbandLevels)
{
    const auto engine = balanced(100.0f, 1.0f, 5);
    detectTonalBlock(*engine);
    EXPECT_EQ(engine->peakL[5], 1.0f);
    EXPECT_EQ(engine->peakR[5], 2.0f);
    EXPECT_EQ(engine->peakSum[5], 3.0f);
    EXPECT_EQ(engine->peakDiff[5], 4.0f);
    EXPECT_TRUE(holdsGroup(*engine, 4, 4));
    EXPECT_TRUE(holdsGroup(*engine, 6, 6));
}

TEST(Tonality, SilenceIsNotTonalAndHasTheSmallTolerance)
{
    const auto engine = balanced(0.0f, 0.0f, 0);
    detectTonalBlock(*engine);
    holdStationaryGroups(*engine);
    EXPECT_EQ(engine->tonalBlock, 0);
    EXPECT_EQ(engine->stationaryTolerance, 0.0001f);
}

TEST(Hold, StationaryGroupKeepsThePreviousPeaks)
{
    const auto heldBy = [](float average, float value, float peak, int tonal) {
        const auto engine = balanced(peak, 1.0f, 3);
        engine->tonalBlock = tonal;
        engine->peakBand[9] = 17;
        engine->subband[1][17] = value; // numberGroups makes the right the louder one
        engine->subbandAvg[1][17] = average;
        engine->prevPeakL[9] = -1.0f;
        engine->prevPeakR[9] = -2.0f;
        engine->prevPeakSum[9] = -3.0f;
        engine->prevPeakDiff[9] = -4.0f;
        holdStationaryGroups(*engine);
        return engine->peakL[9] == -1.0f && engine->peakR[9] == -2.0f && engine->peakSum[9] == -3.0f &&
               engine->peakDiff[9] == -4.0f;
    };
    EXPECT_TRUE(heldBy(1000.05f, 1000.0f, 1.0f, 0));
    EXPECT_FALSE(heldBy(1000.5f, 1000.0f, 1.0f, 0)) << "outside 0.0001";
    EXPECT_TRUE(heldBy(1000.5f, 1000.0f, 4.1f, 0)) << "0.001 when the strongest region is above 4 times the rest";
    EXPECT_FALSE(heldBy(1000.5f, 1000.0f, 4.0f, 0));
    EXPECT_TRUE(heldBy(-1000.05f, -1000.0f, 1.0f, 0));
    EXPECT_FALSE(heldBy(1000.05f, 1000.0f, 1.0f, 1)) << "never in a tonal block";
    EXPECT_FALSE(heldBy(1.0f, 0.0f, 1.0f, 0)) << "infinite ratio";
    EXPECT_FALSE(heldBy(0.0f, 0.0f, 1.0f, 0)) << "undefined ratio";
}

TEST(Hold, ComparesTheLouderChannelAndTheRightOnATie)
{
    for (const auto& [left, right, louder] : {std::tuple{2.0f, 1.0f, 0}, {1.0f, 2.0f, 1}, {1.0f, 1.0f, 1}}) {
        const auto engine = balanced(1.0f, 1.0f, 3);
        engine->peakL[9] = left;
        engine->peakR[9] = right;
        engine->peakBand[9] = 17;
        engine->subband[louder][17] = 10.0f;
        engine->subbandAvg[louder][17] = 10.0f;
        engine->subband[1 - louder][17] = 10.0f;
        engine->subbandAvg[1 - louder][17] = 20.0f;
        engine->prevPeakSum[9] = -3.0f;
        holdStationaryGroups(*engine);
        EXPECT_EQ(engine->peakSum[9], -3.0f);
    }
}

TEST(Spreading, StrongDominantGroupIsCopiedToBothNeighbours)
{
    const auto engine = balanced(8.1f, 1.0f, 7);
    spreadDominantGroup(*engine);
    for (int g = 0; g < 16; ++g) EXPECT_TRUE(holdsGroup(*engine, g, g == 6 || g == 8 ? 7 : g)) << g;
}

TEST(Spreading, OutermostGroupsHaveOneNeighbour)
{
    const auto top = balanced(9.0f, 1.0f, 15);
    spreadDominantGroup(*top);
    EXPECT_TRUE(holdsGroup(*top, 14, 15));
    EXPECT_TRUE(holdsGroup(*top, 0, 0));

    const auto lastButOne = balanced(9.0f, 1.0f, 14);
    spreadDominantGroup(*lastButOne);
    EXPECT_TRUE(holdsGroup(*lastButOne, 15, 14));

    const auto bottom = balanced(9.0f, 1.0f, 0);
    spreadDominantGroup(*bottom);
    EXPECT_TRUE(holdsGroup(*bottom, 1, 0));
    EXPECT_TRUE(holdsGroup(*bottom, 15, 15));
}

TEST(Spreading, OtherwiseGroup1IsCopiedToGroup0)
{
    const auto engine = balanced(8.0f, 1.0f, 7);
    spreadDominantGroup(*engine);
    for (int g = 0; g < 16; ++g) EXPECT_TRUE(holdsGroup(*engine, g, g == 0 ? 1 : g)) << g;
}
