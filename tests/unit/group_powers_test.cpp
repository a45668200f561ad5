// Tests of cinema/group_powers.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/group_powers.h"
#include "tests/support/engine.h"

#include <gtest/gtest.h>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;

TEST(GroupPowers, SmoothsPeaksWithThePowerPair)
{
    const auto engine = engineAt(48000, 16);
    engine->peakL[5] = 100.0f;
    engine->powL[5] = 10.0f;
    engine->peakDiff[15] = 1.0f;
    smoothGroupPowers(*engine);
    EXPECT_EQ(engine->powL[5], 0.95f * 10.0f + 0.05f * 100.0f);
    EXPECT_EQ(engine->powDiff[15], 0.05f);
}
