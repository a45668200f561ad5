// Tests of engine/initialize.cpp.
// SPDX-License-Identifier: MIT
#include "engine/threshold_rows.h"
#include "tests/support/engine.h"
#include "tests/support/record_compare.h"
#include "tests/unit/expect_rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <tuple>

using tests::engineAt;
using tests::expectCounts;
using tests::expectPair;
using tests::parametersAt;

TEST(Initialize, At48kHzPairsAndGroupingOfTheConstructorStay)
{
    ZRKTarn engine;
    EXPECT_EQ(engine.Initialize(parametersAt(48000, 16)), 0u);
    expectCounts(engine.bandCount, ZRKTarn::LOOP_COUNT48);
    expectPair(engine.mid, ZRKTarn::MID);
    expectPair(engine.slower, ZRKTarn::SLOWER);
    expectPair(engine.slow, ZRKTarn::SLOW);
    expectPair(engine.fast, ZRKTarn::FAST);
    EXPECT_EQ(engine.rateCode, 48);
    EXPECT_EQ(engine.modeOneFlag, 1);
    EXPECT_EQ(engine.holdMidSmoothing, 0);
    EXPECT_EQ(engine.mixFraction, 1.0f);
    EXPECT_EQ(engine.mixFractionComplement, 0.0f);
}

TEST(Initialize, InvalidChannelCountsStillSelectAMatrixSet)
{
    for (const auto& [channels, code, region5] : {std::tuple{2, 1u, ZRKTarn::MATRIX25},
                                                  {3, 0u, ZRKTarn::MATRIX25},
                                                  {5, 0u, ZRKTarn::MATRIX25},
                                                  {6, 0u, ZRKTarn::MATRIX26},
                                                  {7, 0u, ZRKTarn::MATRIX26},
                                                  {8, 1u, ZRKTarn::MATRIX26},
                                                  {std::numeric_limits<std::int32_t>::min(), 1u, ZRKTarn::MATRIX25}}) {
        ZRKTarn engine;
        Tarn_Parameters parameters = parametersAt(48000, 16);
        parameters.outputChannels = channels;
        EXPECT_EQ(engine.Initialize(parameters), code);
        EXPECT_TRUE(std::equal(region5, region5 + 12, engine.regionMatrix[1])) << channels << " output channels";
    }
}

TEST(Initialize, CopiesAllNineRegionsInOrder)
{
    const auto engine = engineAt(48000, 16);
    const float* regions[9] = {ZRKTarn::MATRIX15, ZRKTarn::MATRIX25, ZRKTarn::MATRIX35,
                               ZRKTarn::MATRIX45, ZRKTarn::MATRIX55, ZRKTarn::MATRIX65,
                               ZRKTarn::MATRIX75, ZRKTarn::MATRIX85, ZRKTarn::MATRIX95};
    for (int r = 0; r < 9; ++r) EXPECT_TRUE(std::equal(regions[r], regions[r] + 12, engine->regionMatrix[r]));
}

TEST(Initialize, Rejects176400HzAndKeepsThePreviousSettings)
{
    ZRKTarn engine;
    EXPECT_EQ(engine.Initialize(parametersAt(96000, 16)), 0u);
    const ZRKTarn before = engine;
    EXPECT_EQ(engine.Initialize(parametersAt(176400, 24)), 3u);
    EXPECT_EQ(engine.rateCode, 0);
    expectCounts(engine.bandCount, before.bandCount);
    expectPair(engine.mid, before.mid);
    EXPECT_TRUE(tests::sameBits("thresBands", engine.thresBands, before.thresBands));
    EXPECT_EQ(engine.sampleCeiling, 8388607);
}

TEST(Initialize, InvalidFirstRateLeavesThresholdsZero)
{
    const auto engine = engineAt(11025, 16);
    for (const float threshold : engine->thresBands) EXPECT_EQ(threshold, 0.0f);
    expectCounts(engine->bandCount, ZRKTarn::LOOP_COUNT48);
}

TEST(Initialize, InvalidModeKeepsTheFlags)
{
    ZRKTarn engine;
    EXPECT_EQ(engine.Initialize(parametersAt(48000, 16, 4)), 4u);
    EXPECT_EQ(engine.modeOneFlag, 0);
    EXPECT_EQ(engine.holdMidSmoothing, 0);
    EXPECT_EQ(engine.Initialize(parametersAt(48000, 16, 2)), 0u);
    EXPECT_EQ(engine.Initialize(parametersAt(48000, 16, 3)), 4u);
    EXPECT_EQ(engine.modeOneFlag, 0);
    EXPECT_EQ(engine.holdMidSmoothing, 1);
}

TEST(Initialize, ReturnsTheCodeOfTheLastInvalidParameter)
{
    ZRKTarn engine;
    Tarn_Parameters parameters = parametersAt(48000, 16);
    parameters.mixFraction = 1.5f;
    EXPECT_EQ(engine.Initialize(parameters), 6u);
    EXPECT_EQ(engine.mixFraction, 1.5f);
    parameters.sampleRate = 22050;
    EXPECT_EQ(engine.Initialize(parameters), 6u);
    parameters.mixFraction = -0.001f;
    EXPECT_EQ(engine.Initialize(parameters), 6u);
    parameters.mixFraction = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(engine.Initialize(parameters), 3u) << "NaN passes both bounds";
    parameters.outputChannels = 9;
    parameters.mode = 0;
    EXPECT_EQ(engine.Initialize(parameters), 4u);
}

TEST(Initialize, RepeatedCallsScaleRepeatedlyInMode1Only)
{
    ZRKTarn engine;
    engine.Initialize(parametersAt(96000, 16, 1));
    engine.Initialize(parametersAt(96000, 16, 1));
    EXPECT_EQ(engine.mid[0], 0.025f * 0.25f);

    ZRKTarn calm;
    calm.Initialize(parametersAt(96000, 16, 2));
    calm.Initialize(parametersAt(96000, 16, 2));
    EXPECT_EQ(calm.mid[0], 0.025f * 0.5f);

    ZRKTarn cd;
    cd.Initialize(parametersAt(44100, 16, 1));
    cd.Initialize(parametersAt(44100, 24, 1));
    EXPECT_EQ(cd.slow[0], 0.008f * 1.088f * 1.088f);
    EXPECT_EQ(cd.slow[1], 1.0f - cd.slow[0]);
}

TEST(Initialize, Mode2SetsTheFastPairToTheMidPair)
{
    const auto engine = engineAt(44100, 16, 2);
    expectPair(engine->fast, engine->mid);
    EXPECT_EQ(engine->mixFractionComplement, engine->mixFraction);
}

TEST(Initialize, FourOutputChannelsForceTheMixFractionToZero)
{
    for (const int mode : {1, 2}) {
        ZRKTarn engine;
        Tarn_Parameters parameters = parametersAt(48000, 16, mode);
        parameters.outputChannels = 4;
        engine.Initialize(parameters);
        EXPECT_EQ(engine.mixFraction, 0.0f);
        EXPECT_EQ(engine.mixFractionComplement, mode == 1 ? 1.0f : 0.0f);
    }
}

TEST(Initialize, ScalesThePairsAndGroupsTheBandsByRate)
{
    struct Row
    {
        std::uint32_t rateHz;
        std::int32_t code;
        float alpha; ///< of the mid pair
        const std::int32_t* counts;
    };
    const Row rows[] = {
        {32000, 32, 0.025f * 1.5f, ZRKTarn::LOOP_COUNT48},    {44100, 44, 0.025f * 1.088f, ZRKTarn::LOOP_COUNT48},
        {48000, 48, 0.025f, ZRKTarn::LOOP_COUNT48},           {64000, 64, 0.025f / 1.3333f, ZRKTarn::LOOP_COUNT64},
        {88200, 88, 0.025f / 1.8375f, ZRKTarn::LOOP_COUNT96}, {96000, 96, 0.025f * 0.5f, ZRKTarn::LOOP_COUNT96},
        {192000, 192, 0.025f * 0.25f, ZRKTarn::LOOP_COUNT192}};
    for (const Row& row : rows) {
        const auto engine = engineAt(row.rateHz, 16);
        EXPECT_EQ(engine->rateCode, row.code);
        EXPECT_EQ(engine->mid[0], row.alpha);
        EXPECT_TRUE(std::equal(row.counts, row.counts + 16, engine->bandCount)) << row.rateHz;
        expectPair(engine->power, ZRKTarn::POWER);
    }
}

TEST(Initialize, At48kHzPairsAreNotRecomputed)
{
    ZRKTarn engine;
    engine.slow[0] = 0.25f;
    engine.slow[1] = 0.5f;
    engine.Initialize(parametersAt(48000, 16));
    expectPair(engine.slow, {0.25f, 0.5f});
}

TEST(Initialize, GroupingStaysWhenTheRateFallsTo48kHz)
{
    const auto engine = engineAt(192000, 16);
    engine->Initialize(parametersAt(48000, 16));
    expectCounts(engine->bandCount, ZRKTarn::LOOP_COUNT192);
}

TEST(Initialize, ThresholdsOfHigherRatesSkipGroups)
{
    const auto expectRows = [](std::uint32_t rateHz, auto source) {
        const auto engine = engineAt(rateHz, 16);
        for (int g = 0; g < 16; ++g) {
            EXPECT_EQ(engine->thresBands[g], ZRKTarn::THRES_BANDS[source(g)]);
            EXPECT_EQ(engine->midThresBands[g], ZRKTarn::MIDTHRES_BANDS[source(g)]);
            EXPECT_EQ(engine->slowThresBands[g], ZRKTarn::SLOWTHRES_BANDS[source(g)]);
        }
    };
    for (const std::uint32_t rateHz : {32000u, 44100u, 48000u, 64000u}) expectRows(rateHz, [](int g) { return g; });
    for (const std::uint32_t rateHz : {88200u, 96000u}) expectRows(rateHz, [](int g) { return g < 8 ? 2 * g : 15; });
    expectRows(192000u, [](int g) { return g < 4 ? 4 * g : 15; });
}

TEST(Initialize, ComputesTheSampleConversion)
{
    struct Row
    {
        std::int32_t bits;
        float inputScale;
        float outputScale;
        std::int32_t ceiling;
    };
    const float inf = std::numeric_limits<float>::infinity();
    const std::int32_t top = std::numeric_limits<std::int32_t>::max();
    const Row rows[] = {{0, 0.0f, 0.0f, 0},
                        {1, 2147483648.0f, 0.0f, 0},
                        {16, 32768.5f, 65535.0f * 0x1p-31f, 32767},
                        {20, 2048.001953125f, 1048575.0f * 0x1p-31f, 524287},
                        {24, std::bit_cast<float>(0x43000001u), std::bit_cast<float>(0x3bffffffu), 8388607},
                        {32, 0.5f, 2.0f, top},
                        {33, 0.25f, 4.0f, top},
                        {2000, 0.0f, inf, top}};
    for (const Row& row : rows) {
        const auto engine = engineAt(48000, row.bits);
        EXPECT_EQ(engine->inputScale, row.inputScale) << row.bits;
        EXPECT_EQ(engine->outputScale, row.outputScale) << row.bits;
        EXPECT_EQ(engine->sampleCeiling, row.ceiling) << row.bits;
        EXPECT_EQ(engine->sampleFloor, -row.ceiling - 1) << row.bits;
    }
    EXPECT_EQ(std::bit_cast<std::uint32_t>(engineAt(48000, 16)->outputScale), 0x37ffff00u);
}

TEST(Initialize, KeepsSignalState)
{
    const auto engine = engineAt(48000, 16);
    engine->inputHistory[1][17] = 3.0f;
    engine->lrFast[4] = 0.5f;
    engine->power[0] = 0.25f;
    engine->Initialize(parametersAt(96000, 24));
    EXPECT_EQ(engine->inputHistory[1][17], 3.0f);
    EXPECT_EQ(engine->lrFast[4], 0.5f);
    EXPECT_EQ(engine->power[0], 0.25f);
}

TEST(ThresholdRows, CopyEveryStepAndThenTheLastEntry)
{
    float ramp[16];
    for (int g = 0; g < 16; ++g) ramp[g] = static_cast<float>(g);
    for (const int step : {1, 2, 4}) {
        float row[16];
        zrk_tarn::copyThresholds(ramp, step, row);
        for (int g = 0; g < 16; ++g)
            EXPECT_EQ(row[g], static_cast<float>(g < 16 / step ? g * step : 15)) << "step " << step;
    }
}
