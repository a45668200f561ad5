// Tests of cinema/mixing.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/interpolation.h"
#include "cinema/mixing.h"
#include "tests/support/engine.h"
#include "tests/unit/group_position.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;
using tests::setPosition;

TEST(Mixing, CentredGroupHasAFrontGainOf1Point5)
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
    setPosition(*engine, 15, 1.0f, 0.0f);
    interpolateMatrices(*engine);
    mixSubbands(*engine);
    EXPECT_EQ(engine->outSubband[0][63], 1000.0f);
    EXPECT_EQ(engine->outSubband[2][63], 0.5f * 10.0f);
    EXPECT_EQ(engine->outSubband[1][63], 0.707f * 10.0f);
}

TEST(Mixing, GainIsComputedInDoubleAndRoundedOnce)
{
    const auto engine = engineAt(48000, 16);
    engine->subband[0][0] = 1.0f;
    const float x = 0.3456789f;
    setPosition(*engine, 0, -x, 0.0f);
    engine->groupMatrix[0][0] = 1.0f;
    mixSubbands(*engine);
    EXPECT_EQ(engine->outSubband[0][0], static_cast<float>((1.0 - static_cast<double>(x)) * 0.5 + 1.0));
}

TEST(Mixing, BandsAfterTheLastGroupKeepTheirValues)
{
    const auto engine = engineAt(48000, 16);
    engine->bandCount[15] = 2;
    for (auto& row : engine->outSubband) std::fill(std::begin(row), std::end(row), 42.0f);
    mixSubbands(*engine);
    for (const auto& row : engine->outSubband)
        for (int b = 0; b < 64; ++b) EXPECT_EQ(row[b], b < 54 ? 0.0f : 42.0f);
    EXPECT_EQ(engine->bandIndex, 54);
}
