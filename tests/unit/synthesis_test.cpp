// Tests of cinema/synthesis.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/synthesis.h"
#include "filterbank/cos_mod.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <vector>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;

TEST(Synthesis, AddsCompleteSumsOfEvenSlots)
{
    float history[1024];
    float now[64];
    float next[64];
    tests::Random random(2);
    for (float& value : history) value = static_cast<float>(1e6 * random.uniform());
    for (int n = 0; n < 64; ++n) now[n] = next[n] = static_cast<float>(n) * 1e5f;
    for (int m = 64; m < 1024; m += 128)
        for (int n = 0; n < 64; ++n) history[m + n] = std::numeric_limits<float>::quiet_NaN();

    const std::vector<float> given(std::begin(history), std::end(history));
    float sums[64];
    overlapAddAndAdvance(history, now, next, sums);
    for (std::size_t n = 0; n < 64; ++n) {
        float sumNow = 0.0f;
        float sumNext = 0.0f;
        for (std::size_t m = 0; m < 1024; m += 128) {
            sumNow += (given[n + m] - given[63 - n + m]) * lpf[n + m];
            sumNext += (-given[n + m] - given[63 - n + m]) * lpf[n + m + 64];
        }
        EXPECT_EQ(sums[n], static_cast<float>(n) * 1e5f + sumNow);
        EXPECT_EQ(now[n], static_cast<float>(n) * 1e5f + sumNext);
        EXPECT_EQ(next[n], 0.0f);
    }
}

TEST(Synthesis, RoundsHalfAwayFromZeroAndSaturates)
{
    float sums[64] = {-0.5f, 0.5f, 0.49f, -0.49f, 1.5f, -1.5f, 3e9f, -3e9f, 0.0f, -0.0f};
    std::int32_t output[64];
    sums[10] = std::numeric_limits<float>::quiet_NaN();
    sums[11] = std::numeric_limits<float>::infinity();
    sums[12] = -std::numeric_limits<float>::infinity();
    roundOutput(sums, output);
    const std::int32_t expected[] = {-1, 1, 0, 0, 2, -2, INT32_MAX, INT32_MIN, 0, 0, 0, INT32_MAX, INT32_MIN};
    for (int n = 0; n < 13; ++n) EXPECT_EQ(output[n], expected[n]) << sums[n];
}

TEST(Synthesis, ShiftsTheHistoryByOneBlock)
{
    float history[1024];
    float now[64] = {};
    float next[64] = {};
    for (int i = 0; i < 1024; ++i) history[i] = static_cast<float>(i);
    float sums[64];
    overlapAddAndAdvance(history, now, next, sums);
    for (int i = 0; i < 960; ++i) EXPECT_EQ(history[i + 64], static_cast<float>(i));
    for (int i = 0; i < 64; ++i) EXPECT_EQ(history[i], static_cast<float>(i)) << "the newest values stay";
}
