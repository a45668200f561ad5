// Tests of cinema/steering.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/steering.h"
#include "tests/support/engine.h"

#include <gtest/gtest.h>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;

TEST(Steer, SilenceIsInTheMiddle)
{
    const Steering steering = steer(0.0f, 0.0f, 0.0f, 0.0f);
    EXPECT_EQ(steering.lr, 0.0f);
    EXPECT_EQ(steering.fb, 0.0f);
}

TEST(Steer, LeftOnlyIsLeft)
{
    const Steering steering = steer(1e9f, 0.0f, 7e8f, 7e8f);
    EXPECT_EQ(steering.lr, 1.0f - 4.0f / (1e9f + 4.0f));
    EXPECT_EQ(steering.fb, 0.0f);
    const Steering right = steer(0.0f, 1e9f, 7e8f, 7e8f);
    EXPECT_EQ(right.lr, 4.0f / (1e9f + 4.0f) - 1.0f);
}

TEST(Steer, InPhaseIsInFront)
{
    const Steering steering = steer(1000.0f, 1000.0f, 1414.0f, 0.0f);
    EXPECT_EQ(steering.lr, 0.0f);
    EXPECT_EQ(steering.fb, 1.0f - 4.0f / 1418.0f);
}

TEST(Steer, OppositePhaseIsFullBackAndDoublesTheSide)
{
    const Steering steering = steer(1000.0f, 800.0f, 0.0f, 1414.0f);
    EXPECT_EQ(steering.fb, -1.0f);
    EXPECT_EQ(steering.lr, 2.0f * (1.0f - 804.0f / 1004.0f));
    const Steering far = steer(1000.0f, 100.0f, 0.0f, 1414.0f);
    EXPECT_EQ(far.lr, 1.0f) << "clamped";
    const Steering farRight = steer(100.0f, 1000.0f, 0.0f, 1414.0f);
    EXPECT_EQ(farRight.lr, -1.0f);
}

TEST(Steer, SlightlyBackWidensTheSide)
{
    const Steering steering = steer(1000.0f, 800.0f, 796.0f, 996.0f);
    const float fb = (800.0f / 1000.0f - 1.0f) * 1.5f;
    EXPECT_EQ(steering.fb, fb);
    EXPECT_EQ(steering.lr, (1.0f - 804.0f / 1004.0f) * (1.0f - fb));
}

TEST(Steer, QuietGroupsStayNearTheMiddle)
{
    EXPECT_EQ(steer(4.0f, 0.0f, 0.0f, 0.0f).lr, 0.5f);
    EXPECT_EQ(steer(0.0f, 4.0f, 0.0f, 0.0f).lr, -0.5f);
}

TEST(Steer, NegativeLevelsAreClampedAtTheFront)
{
    EXPECT_EQ(steer(0.0f, 0.0f, 0.0f, -8.0f).fb, 1.0f);
}

TEST(SteerBroadband, SmoothsTheBroadbandSteeringAtFourSpeeds)
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

TEST(SteerGroups, SteersEveryGroup)
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
