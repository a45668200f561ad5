// Levels in decibels.
// SPDX-License-Identifier: MIT
#include "picture/levels.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(Levels, AreWithinAHundredthOfADecibelOfTheLogarithm)
{
    for (int step = -1990; step < 600; ++step) {
        const auto power = static_cast<float>(std::pow(10.0, step / 100.0));
        // A series replaces the logarithm.
        EXPECT_NEAR(static_cast<double>(tarn::levelOf(power)), 10.0 * std::log10(static_cast<double>(power)), 0.01);
    }
    EXPECT_EQ(tarn::levelOf(0.0f), tarn::kSilentDb);
    EXPECT_EQ(tarn::levelOf(1.0f), 0.0f);
}

TEST(Levels, HistogramFindsTheLevelThatAShareExceeds)
{
    tarn::LevelHistogram levels;
    EXPECT_EQ(levels.exceededBy(0.1), tarn::kSilentDb);
    for (int i = 0; i < 900; ++i) levels.add(1e-6f);
    for (int i = 0; i < 90; ++i) levels.add(1e-3f);
    for (int i = 0; i < 10; ++i) levels.add(1.0f);
    levels.add(0.0f); // does not count
    // Levels are counted in steps of 0.25 dB.
    EXPECT_NEAR(levels.exceededBy(0.005), 0.0f, 0.25f);
    EXPECT_NEAR(levels.exceededBy(0.05), -30.0f, 0.25f);
    EXPECT_NEAR(levels.exceededBy(0.5), -60.0f, 0.25f);
}
