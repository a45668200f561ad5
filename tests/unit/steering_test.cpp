#include "cinema/interpolation.h"
#include "cinema/mixing.h"
#include "cinema/speed_selection.h"
#include "cinema/steering.h"
#include "tests/support/engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;

// --- The steering rule
// ---------------------------------------------------------------------------------------------------

TEST(Steer, SilenceIsTheMiddle)
{
    const Steering place = steer(0.0f, 0.0f, 0.0f, 0.0f);
    EXPECT_EQ(place.lr, 0.0f);
    EXPECT_EQ(place.fb, 0.0f);
}

TEST(Steer, LeftOnlyTendsToTheLeftMiddleRow)
{
    const Steering place = steer(1e9f, 0.0f, 7e8f, 7e8f);
    EXPECT_EQ(place.lr, 1.0f - 4.0f / (1e9f + 4.0f));
    EXPECT_EQ(place.fb, 0.0f);
    const Steering right = steer(0.0f, 1e9f, 7e8f, 7e8f);
    EXPECT_EQ(right.lr, 4.0f / (1e9f + 4.0f) - 1.0f);
}

TEST(Steer, InPhaseIsInFront)
{
    const Steering place = steer(1000.0f, 1000.0f, 1414.0f, 0.0f);
    EXPECT_EQ(place.lr, 0.0f);
    EXPECT_EQ(place.fb, 1.0f - 4.0f / 1418.0f);
}

TEST(Steer, OppositePhaseIsClampedAtTheBackAndDoublesTheSide)
{
    const Steering place = steer(1000.0f, 800.0f, 0.0f, 1414.0f);
    EXPECT_EQ(place.fb, -1.0f);
    EXPECT_EQ(place.lr, 2.0f * (1.0f - 804.0f / 1004.0f));
    const Steering far = steer(1000.0f, 100.0f, 0.0f, 1414.0f);
    EXPECT_EQ(far.lr, 1.0f) << "clamped";
    const Steering farRight = steer(100.0f, 1000.0f, 0.0f, 1414.0f);
    EXPECT_EQ(farRight.lr, -1.0f);
}

TEST(Steer, SlightlyBackDrawsTheSideOutwards)
{
    const Steering place = steer(1000.0f, 800.0f, 796.0f, 996.0f);
    const float fb = (800.0f / 1000.0f - 1.0f) * 1.5f;
    EXPECT_EQ(place.fb, fb);
    EXPECT_EQ(place.lr, (1.0f - 804.0f / 1004.0f) * (1.0f - fb));
}

TEST(Steer, FloorKeepsQuietGroupsNearTheMiddle)
{
    EXPECT_EQ(steer(4.0f, 0.0f, 0.0f, 0.0f).lr, 0.5f);
    EXPECT_EQ(steer(0.0f, 4.0f, 0.0f, 0.0f).lr, -0.5f);
}

TEST(Steer, ClampsTheFrontForLevelsThatOnlyACallerCanWrite)
{
    EXPECT_EQ(steer(0.0f, 0.0f, 0.0f, -8.0f).fb, 1.0f);
}

TEST(SteerBroadband, SmoothsTheBroadbandPlaceAtFourSpeeds)
{
    const auto engine = engineAt(48000, 16);
    engine->avgLevelL = 12.0f;
    engine->avgLevelSum = 4.0f;
    engine->globalLRFast = 1.0f;
    steerBroadband(*engine);
    EXPECT_EQ(engine->globalLR, 0.75f);
    EXPECT_EQ(engine->globalFB, 0.5f);
    EXPECT_EQ(engine->globalLRSlower, 0.002f * 0.75f);
    EXPECT_EQ(engine->globalLRSlow, 0.008f * 0.75f);
    EXPECT_EQ(engine->globalLRMid, 0.025f * 0.75f);
    EXPECT_EQ(engine->globalLRFast, 0.9f * 1.0f + 0.1f * 0.75f);
    EXPECT_EQ(engine->globalFBSlower, 0.002f * 0.5f);
    EXPECT_EQ(engine->globalFBSlow, 0.008f * 0.5f);
    EXPECT_EQ(engine->globalFBMid, 0.025f * 0.5f);
    EXPECT_EQ(engine->globalFBFast, 0.1f * 0.5f);
}

TEST(SteerGroups, AppliesTheRuleToEveryGroup)
{
    const auto engine = engineAt(48000, 16);
    engine->powL[6] = 12.0f;
    engine->powDiff[9] = 4.0f;
    steerGroups(*engine);
    for (int g = 0; g < 16; ++g) {
        EXPECT_EQ(engine->steerLR[g], g == 6 ? 0.75f : 0.0f);
        EXPECT_EQ(engine->steerFB[g], g == 9 ? -0.75f : 0.0f);
    }
}

// --- Speed selection
// -----------------------------------------------------------------------------------------------------

namespace
{

/// An engine with thresholds 0.5, 0.3 and 0.1 in all groups, and the last group's steering.
std::unique_ptr<ZRKTarn> steered(float lr, float fb)
{
    auto engine = engineAt(48000, 16);
    for (int g = 0; g < 16; ++g) {
        engine->thres[g] = 0.5f;
        engine->midThres[g] = 0.3f;
        engine->slowThres[g] = 0.1f;
    }
    engine->steerLR[15] = lr;
    engine->steerFB[15] = fb;
    return engine;
}

enum class Speed
{
    Slower,
    Slow,
    Mid,
    Fast
};

Speed usedSpeed(const ZRKTarn& engine)
{
    EXPECT_LE(engine.usedFast + engine.usedMid + engine.usedSlow, 1);
    return engine.usedFast == 1   ? Speed::Fast
           : engine.usedMid == 1  ? Speed::Mid
           : engine.usedSlow == 1 ? Speed::Slow
                                  : Speed::Slower;
}

Speed speedFor(float lr, float fb)
{
    const auto engine = steered(lr, fb);
    selectSpeeds(*engine);
    return usedSpeed(*engine);
}

} // namespace

TEST(SelectSpeeds, ThresholdsDecideBySideAndByDepth)
{
    EXPECT_EQ(speedFor(0.5f, 0.0f), Speed::Fast);
    EXPECT_EQ(speedFor(0.0f, -0.5f), Speed::Fast);
    EXPECT_EQ(speedFor(0.49f, 0.49f), Speed::Mid);
    EXPECT_EQ(speedFor(-0.3f, 0.0f), Speed::Mid);
    EXPECT_EQ(speedFor(0.0f, 0.3f), Speed::Mid);
    EXPECT_EQ(speedFor(0.29f, 0.0f), Speed::Slow);
    EXPECT_EQ(speedFor(0.0f, -0.1f), Speed::Slow);
    EXPECT_EQ(speedFor(0.09f, 0.09f), Speed::Slower);
    EXPECT_EQ(speedFor(0.0f, 0.0f), Speed::Slower);
}

TEST(SelectSpeeds, TonalBlockMakesEveryGroupFollowFast)
{
    const auto engine = steered(0.0f, 0.0f);
    engine->tonalBlock = 1;
    for (int g = 0; g < 16; ++g) {
        engine->steerLR[g] = 0.01f;
        engine->lrFast[g] = 0.5f;
    }
    selectSpeeds(*engine);
    EXPECT_EQ(usedSpeed(*engine), Speed::Fast);
    for (const float lr : engine->lrSlower) EXPECT_EQ(lr, 0.9f * 0.5f + 0.1f * 0.01f);
}

TEST(SelectSpeeds, SilenceFollowsTheSlowerSpeedInEveryGroup)
{
    const auto engine = steered(0.0f, 0.0f);
    engine->lrSlower[4] = 0.5f;
    engine->lrFast[4] = -0.5f;
    selectSpeeds(*engine);
    EXPECT_EQ(usedSpeed(*engine), Speed::Slower);
    EXPECT_EQ(engine->lrFast[4], 0.998f * 0.5f);
}

TEST(SelectSpeeds, AllSpeedsContinueFromTheChosenPlace)
{
    const auto engine = steered(0.4f, 0.2f);
    engine->lrSlower[15] = 0.1f;
    engine->lrSlow[15] = 0.2f;
    engine->lrMid[15] = 0.3f;
    engine->lrFast[15] = 0.9f;
    selectSpeeds(*engine);
    const float lr = 0.975f * 0.3f + 0.025f * 0.4f;
    const float fb = 0.025f * 0.2f;
    for (const float* speed : {engine->lrSlower, engine->lrSlow, engine->lrMid, engine->lrFast})
        EXPECT_EQ(speed[15], lr);
    for (const float* speed : {engine->fbSlower, engine->fbSlow, engine->fbMid, engine->fbFast})
        EXPECT_EQ(speed[15], fb);
}

TEST(SelectSpeeds, MeanIsOfTheFastValuesBeforeTheChoice)
{
    const auto engine = steered(0.2f, 0.0f);
    engine->steerLR[0] = 0.4f;
    selectSpeeds(*engine);
    float sum = 0.1f * 0.4f;
    sum += 0.1f * 0.2f;
    EXPECT_EQ(engine->meanLRFast, sum * 0.0625f);
}

TEST(SelectSpeeds, ThreeOutputsDoNotSteerToTheBackButForTheSlowerSpeed)
{
    for (const int outputChannels : {3, 4}) {
        for (const auto& [fb, speed] :
             {std::pair{-0.6f, Speed::Fast}, {-0.4f, Speed::Mid}, {-0.2f, Speed::Slow}, {-0.05f, Speed::Slower}}) {
            const auto engine = steered(0.0f, fb);
            engine->outputChannels = outputChannels;
            selectSpeeds(*engine);
            EXPECT_EQ(usedSpeed(*engine), speed);
            if (outputChannels == 3 && speed != Speed::Slower) {
                EXPECT_EQ(engine->fbFast[15], 0.0f);
            } else {
                EXPECT_LT(engine->fbFast[15], 0.0f);
            }
        }
    }
}

// --- Interpolation and mixing
// ------------------------------------------------------------------------------------------

namespace
{

void placeGroup(ZRKTarn& engine, int g, float x, float y)
{
    engine.lrSlower[g] = x;
    engine.fbSlower[g] = y;
}

} // namespace

TEST(Interpolation, GridPointsGiveTheirRegionExactly)
{
    const auto engine = engineAt(48000, 16);
    struct Point
    {
        float x;
        float y;
        int region;
    };
    // At (1, -1) and (-1, -1) the interpolation form rounds; only the second happens to be exact.
    const Point points[] = {{1, 1, 0}, {0, 1, 1},  {-1, 1, 2}, {1, 0, 3},
                            {0, 0, 4}, {-1, 0, 5}, {0, -1, 7}, {-1, -1, 8}};
    for (const Point& point : points) {
        for (int g = 0; g < 16; ++g) placeGroup(*engine, g, point.x, point.y);
        interpolateMatrices(*engine);
        for (int g = 0; g < 16; ++g)
            for (int j = 0; j < 6; ++j)
                EXPECT_EQ(engine->groupMatrix[g][j], engine->regionMatrix[point.region][j])
                    << "region " << point.region + 1 << ", element " << j;
    }
}

TEST(Interpolation, QuadrantsHaveTheirForms)
{
    const auto engine = engineAt(48000, 16);
    const auto m = [&](int region, int j) { return engine->regionMatrix[region - 1][j]; };
    placeGroup(*engine, 0, 0.3f, 0.6f);
    placeGroup(*engine, 1, -0.3f, 0.6f);
    placeGroup(*engine, 2, 0.3f, -0.6f);
    placeGroup(*engine, 3, -0.3f, -0.6f);
    interpolateMatrices(*engine);
    for (int j = 0; j < 6; ++j) {
        float p = m(2, j) - (m(2, j) - m(1, j)) * 0.3f;
        float q = m(5, j) - (m(5, j) - m(4, j)) * 0.3f;
        EXPECT_EQ(engine->groupMatrix[0][j], q + (p - q) * 0.6f);
        p = m(3, j) - (1 + -0.3f) * (m(3, j) - m(2, j));
        q = m(6, j) - (1 + -0.3f) * (m(6, j) - m(5, j));
        EXPECT_EQ(engine->groupMatrix[1][j], q + (p - q) * 0.6f);
        p = m(5, j) - (m(5, j) - m(4, j)) * 0.3f;
        q = m(8, j) - (m(8, j) - m(7, j)) * 0.3f;
        EXPECT_EQ(engine->groupMatrix[2][j], q + (1 + -0.6f) * (p - q));
        p = m(6, j) - (1 + -0.3f) * (m(6, j) - m(5, j));
        q = m(9, j) - (1 + -0.3f) * (m(9, j) - m(8, j));
        EXPECT_EQ(engine->groupMatrix[3][j], q + (1 + -0.6f) * (p - q));
    }
}

TEST(Interpolation, OnlyElements0To5AreWritten)
{
    const auto engine = engineAt(48000, 16);
    for (auto& row : engine->groupMatrix) std::fill(std::begin(row), std::end(row), 42.0f);
    interpolateMatrices(*engine);
    for (const auto& row : engine->groupMatrix)
        for (int j = 6; j < 12; ++j) EXPECT_EQ(row[j], 42.0f);
}

TEST(Mixing, CentredGroupHasTheFrontGain)
{
    const auto engine = engineAt(48000, 16);
    for (int b = 0; b < 64; ++b) {
        engine->subband[0][b] = static_cast<float>(b + 1);
        engine->subband[1][b] = static_cast<float>(-2 * b);
    }
    interpolateMatrices(*engine);
    mixSubbands(*engine);
    for (int b = 0; b < 64; ++b) {
        const float l = engine->subband[0][b];
        const float r = engine->subband[1][b];
        EXPECT_EQ(engine->outSubband[0][b], 0.707f * 1.5f * l + 0.0f * r);
        EXPECT_EQ(engine->outSubband[1][b], 0.0f * l + 0.707f * 1.5f * r);
        EXPECT_EQ(engine->outSubband[2][b], 0.5f * l + 0.5f * r);
    }
}

TEST(Mixing, FullyPannedGroupHasNoGain)
{
    const auto engine = engineAt(48000, 16);
    engine->subband[0][63] = 1000.0f;
    engine->subband[1][63] = 10.0f;
    placeGroup(*engine, 15, 1.0f, 0.0f);
    interpolateMatrices(*engine);
    mixSubbands(*engine);
    EXPECT_EQ(engine->outSubband[0][63], 1000.0f);
    EXPECT_EQ(engine->outSubband[2][63], 0.5f * 10.0f);
    EXPECT_EQ(engine->outSubband[1][63], 0.707f * 10.0f);
}

TEST(Mixing, GainIsFormedInDoubleAndRoundedOnce)
{
    const auto engine = engineAt(48000, 16);
    engine->subband[0][0] = 1.0f;
    const float x = 0.3456789f;
    placeGroup(*engine, 0, -x, 0.0f);
    engine->groupMatrix[0][0] = 1.0f;
    mixSubbands(*engine);
    EXPECT_EQ(engine->outSubband[0][0], static_cast<float>((1.0 - static_cast<double>(x)) * 0.5 + 1.0));
}

TEST(Mixing, BandsPastTheGroupsKeepTheirValues)
{
    const auto engine = engineAt(48000, 16);
    engine->bandCount[15] = 2;
    for (auto& row : engine->outSubband) std::fill(std::begin(row), std::end(row), 42.0f);
    mixSubbands(*engine);
    for (const auto& row : engine->outSubband)
        for (int b = 0; b < 64; ++b) EXPECT_EQ(row[b], b < 54 ? 0.0f : 42.0f);
    EXPECT_EQ(engine->bandIndex, 54);
}
