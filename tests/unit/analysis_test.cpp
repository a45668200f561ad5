// Tests of cinema/analysis.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/analysis.h"
#include "filterbank/cos_mod.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <vector>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;

namespace
{

/// weightAndAdvance without levels.
void weightOnly(float (&history)[1024], float (&branch)[128])
{
    const float magnitudes[32][4] = {};
    float levelSums[4] = {};
    weightAndAdvance(magnitudes, history, branch, levelSums);
}

} // namespace

TEST(Analysis, WeightsEachBranchInAscendingOrder)
{
    float history[1024];
    float branch[128];
    tests::Random random(1);
    for (float& sample : history) sample = static_cast<float>(1e9 * random.uniform());
    const std::vector<float> given(std::begin(history), std::end(history));
    weightOnly(history, branch);
    for (std::size_t k = 0; k < 128; ++k) {
        float sum = 0.0f;
        for (std::size_t m = 0; m < 8; ++m) sum += lpf[k + 128 * m] * given[k + 128 * m];
        EXPECT_EQ(branch[k], sum);
    }
}

TEST(Analysis, FoldsBranches)
{
    float branch[128] = {};
    float folded[64];
    branch[5] = 1.0f;
    branch[64 + 5] = 10.0f;
    foldBranches(branch, folded);
    for (int n = 0; n < 64; ++n) EXPECT_EQ(folded[n], n == 5 ? 1.0f - 10.0f : n == 58 ? -1.0f - 10.0f : 0.0f) << n;
}

TEST(Analysis, ShiftsTheHistoryByOneBlock)
{
    float history[1024];
    float branch[128];
    for (int i = 0; i < 1024; ++i) history[i] = static_cast<float>(i);
    weightOnly(history, branch);
    for (int i = 0; i < 960; ++i) EXPECT_EQ(history[i], static_cast<float>(i + 64));
    for (int i = 960; i < 1024; ++i) EXPECT_EQ(history[i], static_cast<float>(i)) << "the newest samples stay";
}

TEST(Analysis, AddsMagnitudesInAscendingOrder)
{
    float history[1024] = {};
    float branch[128];
    float magnitudes[32][4];
    float sums[4] = {1.0f, 2.0f, 3.0f, 4.0f};
    float expected[4] = {1.0f, 2.0f, 3.0f, 4.0f};
    tests::Random random(2);
    for (auto& sample : magnitudes) {
        for (int k = 0; k < 4; ++k) {
            sample[k] = static_cast<float>(1.0 + random.uniform());
            expected[k] += sample[k];
        }
    }
    weightAndAdvance(magnitudes, history, branch, sums);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(sums[k], expected[k]);
}

TEST(Analysis, AveragesSignedSubbands)
{
    float subband[64] = {};
    float average[64] = {};
    subband[7] = -100.0f;
    average[7] = 50.0f;
    averageSubbands(subband, average);
    EXPECT_EQ(average[7], 0.9f * 50.0f + 0.1f * -100.0f);
}
