// Tests of cinema/levels.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/levels.h"
#include "tests/support/engine.h"

#include <gtest/gtest.h>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;

TEST(Levels, AreMeansOfTheNewestBlockOnly)
{
    const auto engine = engineAt(48000, 16);
    for (int i = 0; i < 1024; ++i) {
        const float sign = i % 2 == 0 ? 1.0f : -1.0f;
        engine->inputHistory[0][i] = i < 960 ? 1e9f : 300.0f * sign;
        engine->inputHistory[1][i] = i < 960 ? 1e9f : 100.0f * sign;
    }
    engine->avgLevelL = 50.0f;
    measureLevels(*engine);
    EXPECT_EQ(engine->levelL, 300.0f);
    EXPECT_EQ(engine->levelR, 100.0f);
    EXPECT_EQ(engine->levelSum, 400.0f * 64.0f / 90.50967f);
    EXPECT_EQ(engine->levelDiff, 200.0f * 64.0f / 90.50967f);
    EXPECT_EQ(engine->avgLevelL, 0.9f * 50.0f + 0.1f * 300.0f);
    EXPECT_EQ(engine->avgLevelSum, 0.1f * engine->levelSum);
}
