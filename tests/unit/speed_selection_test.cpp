// Tests of cinema/speed_selection.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/speed_selection.h"
#include "tests/support/engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;

namespace
{

/// An engine with thresholds 0.5, 0.3 and 0.1 in all groups, and steering of the last group.
std::unique_ptr<ZRKTarn> engineWithSteering(float lr, float fb)
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
    const auto engine = engineWithSteering(lr, fb);
    selectSpeeds(*engine);
    return usedSpeed(*engine);
}

} // namespace

TEST(SelectSpeeds, ThresholdsApplyToLeftRightAndFrontBack)
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

TEST(SelectSpeeds, TonalBlockSelectsFastInEveryGroup)
{
    const auto engine = engineWithSteering(0.0f, 0.0f);
    engine->tonalBlock = 1;
    for (int g = 0; g < 16; ++g) {
        engine->steerLR[g] = 0.01f;
        engine->lrFast[g] = 0.5f;
    }
    selectSpeeds(*engine);
    EXPECT_EQ(usedSpeed(*engine), Speed::Fast);
    for (const float lr : engine->lrSlower) EXPECT_EQ(lr, 0.9f * 0.5f + 0.1f * 0.01f);
}

TEST(SelectSpeeds, SilenceSelectsSlowerInEveryGroup)
{
    const auto engine = engineWithSteering(0.0f, 0.0f);
    engine->lrSlower[4] = 0.5f;
    engine->lrFast[4] = -0.5f;
    selectSpeeds(*engine);
    EXPECT_EQ(usedSpeed(*engine), Speed::Slower);
    EXPECT_EQ(engine->lrFast[4], 0.998f * 0.5f);
}

TEST(SelectSpeeds, AllSpeedsGetTheChosenValue)
{
    const auto engine = engineWithSteering(0.4f, 0.2f);
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

TEST(SelectSpeeds, MeanIsOfFastValuesBeforeTheChoice)
{
    const auto engine = engineWithSteering(0.2f, 0.0f);
    engine->steerLR[0] = 0.4f;
    selectSpeeds(*engine);
    float sum = 0.1f * 0.4f;
    sum += 0.1f * 0.2f;
    EXPECT_EQ(engine->meanLRFast, sum * 0.0625f);
}

TEST(SelectSpeeds, ThreeOutputsFollowToTheBackOnlyAtSlowerSpeed)
{
    for (const int outputChannels : {3, 4}) {
        for (const auto& [fb, speed] :
             {std::pair{-0.6f, Speed::Fast}, {-0.4f, Speed::Mid}, {-0.2f, Speed::Slow}, {-0.05f, Speed::Slower}}) {
            const auto engine = engineWithSteering(0.0f, fb);
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

TEST(ReadSpeeds, GivesTheSpeedOfEveryGroup)
{
    const float steering[] = {0.0f, 0.09f, 0.1f, 0.29f, 0.3f, 0.49f, 0.5f, 1.0f};
    const std::int32_t expected[] = {0, 0, 1, 1, 2, 2, 3, 3};
    for (const int mode : {1, 2}) {
        const auto engine = engineWithSteering(0.0f, 0.0f);
        engine->holdMidSmoothing = mode == 2 ? 1 : 0;
        for (int g = 0; g < 8; ++g) {
            engine->steerLR[g] = -steering[g];
            engine->steerFB[8 + g] = steering[g];
        }
        std::int32_t speed[16];
        readSpeeds(*engine, speed);
        for (int g = 0; g < 16; ++g)
            EXPECT_EQ(speed[g], mode == 2 ? std::min(expected[g % 8], 2) : expected[g % 8]) << "group " << g;
    }
}

TEST(ReadSpeeds, TonalBlockIsFastInEveryGroup)
{
    const auto engine = engineWithSteering(0.0f, 0.0f);
    engine->tonalBlock = 1;
    std::int32_t speed[16];
    readSpeeds(*engine, speed);
    for (const std::int32_t group : speed) EXPECT_EQ(group, 3);
}
