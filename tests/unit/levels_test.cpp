// Tests of cinema/levels.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/levels.h"
#include "tests/support/engine.h"

#include <gtest/gtest.h>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;

namespace
{

void measureLevels(ZRKTarn& engine)
{
    float magnitudes[2][32][4];
    computeMagnitudes(engine, magnitudes);
    float sums[4] = {};
    for (const auto& half : magnitudes)
        for (const auto& sample : half)
            for (int k = 0; k < 4; ++k) sums[k] += sample[k];
    setLevels(sums, engine);
}

} // namespace

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

TEST(Levels, MagnitudesAreInTheOrderOfTheSamples)
{
    const auto engine = engineAt(48000, 16);
    for (int t = 0; t < 64; ++t) {
        engine->inputHistory[0][960 + t] = static_cast<float>(-1 - t);
        engine->inputHistory[1][960 + t] = static_cast<float>(1000 * t);
    }
    float magnitudes[2][32][4];
    computeMagnitudes(*engine, magnitudes);
    for (int t = 0; t < 64; ++t) {
        const float expected[4] = {static_cast<float>(1 + t), static_cast<float>(1000 * t),
                                   static_cast<float>(t == 0 ? 1 : 999 * t - 1), static_cast<float>(1001 * t + 1)};
        for (int k = 0; k < 4; ++k) EXPECT_EQ(magnitudes[t / 32][t % 32][k], expected[k]) << t << ' ' << k;
    }
}
