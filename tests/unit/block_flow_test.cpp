#include "cinema/analysis.h"
#include "cinema/synthesis.h"
#include "filterbank/cos_mod.h"
#include "filterbank/vector_pair_sums.h"
#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;
using tests::GuardedBuffer;

namespace
{

/// Runs blocks of 16-bit stereo in a three-slot buffer; sample(frame, channel) is the input.
template <typename Sample>
void runBlocks(ZRKTarn& engine, int blocks, Sample sample)
{
    for (int block = 0; block < blocks; ++block) {
        GuardedBuffer buffer(64, 3, 16);
        for (std::size_t i = 0; i < 64; ++i) {
            buffer.set(i, 0, sample(64 * static_cast<std::size_t>(block) + i, 0));
            buffer.set(i, 1, sample(64 * static_cast<std::size_t>(block) + i, 1));
        }
        engine.SetChannelPtrs(buffer.data(), buffer.data() + 2, buffer.data() + 4, buffer.data() + 4);
        EXPECT_EQ(engine.ProcessCine3InterLeave(64, 3), 0u);
        EXPECT_TRUE(buffer.guardsIntact());
    }
}

constexpr auto kSilence = [](std::size_t, int) { return 0; };

bool outputIsZero(const ZRKTarn& engine)
{
    const std::int32_t* const first = &engine.outputBlock[0][0];
    return std::all_of(first, first + 192, [](std::int32_t sample) { return sample == 0; });
}

} // namespace

TEST(Analysis, WeightsEachBranchInAscendingOrder)
{
    float history[1024];
    float branch[128];
    tests::Random random(1);
    for (float& sample : history) sample = static_cast<float>(1e9 * random.uniform());
    const std::vector<float> given(std::begin(history), std::end(history));
    weightAndAdvance(history, branch);
    for (std::size_t k = 0; k < 128; ++k) {
        float sum = 0.0f;
        for (std::size_t m = 0; m < 8; ++m) sum += lpf[k + 128 * m] * given[k + 128 * m];
        EXPECT_EQ(branch[k], sum);
    }
}

TEST(Analysis, FoldsTheFourQuartersOfTheBranches)
{
    float branch[128] = {};
    float folded[64];
    branch[5] = 1.0f;
    branch[64 + 5] = 10.0f;
    foldBranches(branch, folded);
    for (int n = 0; n < 64; ++n) EXPECT_EQ(folded[n], n == 5 ? 1.0f - 10.0f : n == 58 ? -1.0f - 10.0f : 0.0f) << n;
}

TEST(Analysis, SplitsIntoPairSums)
{
    float x[64];
    float even[32];
    float odd[32];
    for (int n = 0; n < 64; ++n) x[n] = static_cast<float>(n * n);
    splitIntoPairSums(x, even, odd);
    EXPECT_EQ(odd[0], x[0]);
    for (int k = 0; k < 32; ++k) EXPECT_EQ(even[k], x[2 * k] + x[2 * k + 1]);
    for (int k = 1; k < 32; ++k) EXPECT_EQ(odd[k], x[2 * k - 1] + x[2 * k]);
}

TEST(Analysis, AveragesSignedSubbandsOfTheBlockBefore)
{
    const auto engine = engineAt(48000, 16);
    engine->subband[1][7] = -100.0f;
    engine->subbandAvg[1][7] = 50.0f;
    runBlocks(*engine, 1, kSilence);
    EXPECT_EQ(engine->subbandAvg[1][7], 0.9f * 50.0f + 0.1f * -100.0f);
    EXPECT_EQ(engine->subband[1][7], 0.0f);
}

TEST(Synthesis, AddsWholeSumsToTheOverlapsFromTheEvenSlotsOnly)
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
    overlapAddAndAdvance(history, now, next);
    for (std::size_t n = 0; n < 64; ++n) {
        float sumNow = 0.0f;
        float sumNext = 0.0f;
        for (std::size_t m = 0; m < 1024; m += 128) {
            sumNow += (given[n + m] - given[63 - n + m]) * lpf[n + m];
            sumNext += (-given[n + m] - given[63 - n + m]) * lpf[n + m + 64];
        }
        EXPECT_EQ(now[n], static_cast<float>(n) * 1e5f + sumNow);
        EXPECT_EQ(next[n], static_cast<float>(n) * 1e5f + sumNext);
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

TEST(Histories, MoveByOneBlock)
{
    float input[1024];
    float synthesis[1024];
    float branch[128];
    float now[64] = {};
    float next[64] = {};
    for (int i = 0; i < 1024; ++i) input[i] = synthesis[i] = static_cast<float>(i);
    weightAndAdvance(input, branch);
    overlapAddAndAdvance(synthesis, now, next);
    for (int i = 0; i < 960; ++i) {
        EXPECT_EQ(input[i], static_cast<float>(i + 64));
        EXPECT_EQ(synthesis[i + 64], static_cast<float>(i));
    }
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(input[960 + i], static_cast<float>(960 + i)) << "the newest samples stay";
        EXPECT_EQ(synthesis[i], static_cast<float>(i)) << "the newest subbands stay";
    }

    std::fill(std::begin(now), std::end(now), 1.0f);
    std::fill(std::begin(next), std::end(next), 2.0f);
    advanceOverlap(now, next);
    for (int n = 0; n < 64; ++n) {
        EXPECT_EQ(now[n], 2.0f);
        EXPECT_EQ(next[n], 0.0f);
    }
}

TEST(BlockFlow, SilenceGivesExactlyZero)
{
    const auto engine = engineAt(48000, 16);
    for (int block = 0; block < 40; ++block) {
        runBlocks(*engine, 1, kSilence);
        EXPECT_TRUE(outputIsZero(*engine));
    }
}

TEST(BlockFlow, SilenceLeavesTheMeasuresAtZeroAndTheSlowerSpeed)
{
    const auto engine = engineAt(48000, 16);
    runBlocks(*engine, 10, kSilence);
    engine->thresBands[1] = 0.75f;
    runBlocks(*engine, 1, kSilence);
    EXPECT_EQ(engine->thres[0], 0.75f) << "group 0 takes group 1's values";
    for (int g = 0; g < 16; ++g) {
        EXPECT_EQ(engine->peakL[g], 0.0f);
        EXPECT_EQ(engine->powSum[g], 0.0f);
        EXPECT_EQ(engine->steerLR[g], 0.0f);
        EXPECT_EQ(engine->steerFB[g], 0.0f);
    }
    EXPECT_EQ(engine->spectrumL, 0.0f);
    EXPECT_EQ(engine->avgLevelSum, 0.0f);
    EXPECT_EQ(engine->tonalBlock, 0);
    EXPECT_EQ(engine->stationaryTolerance, 0.0001f);
    EXPECT_EQ(engine->usedFast + engine->usedMid + engine->usedSlow, 0);
}

TEST(BlockFlow, OutputIsExactlyZeroFromThe31stBlockAfterTheLastInput)
{
    const auto engine = engineAt(48000, 16);
    runBlocks(*engine, 40, [](std::size_t i, int) { return i % 100 < 50 ? 32767 : -32768; });
    runBlocks(*engine, 30, kSilence);
    for (int block = 0; block < 200; ++block) {
        runBlocks(*engine, 1, kSilence);
        EXPECT_TRUE(outputIsZero(*engine)) << "block " << 31 + block;
    }
}

TEST(BlockFlow, SynthesisTakesTheMixedSubbandsNotWhatTheAnalysisLeft)
{
    const auto noise = [](std::size_t i, int c) {
        return static_cast<int>((i * 7919 + 31u * static_cast<unsigned>(c)) % 20011) - 10000;
    };
    const auto engine = engineAt(48000, 16);
    runBlocks(*engine, 20, noise);
    for (int r = 0; r < 3; ++r) {
        float even[32];
        float odd[32];
        float transformed[64];
        splitIntoPairSums(engine->outSubband[r], even, odd);
        EXPECT_EQ(0, std::memcmp(even, engine->dctEven[r], sizeof even)) << "row " << r;
        EXPECT_EQ(0, std::memcmp(odd, engine->dctOdd[r], sizeof odd)) << "row " << r;
        cosModDCT4_X1(transformed, even, odd);
        EXPECT_EQ(0, std::memcmp(transformed, engine->synthHistory[r], sizeof transformed)) << "row " << r;
    }
}

TEST(BlockFlow, OnlyElements0To5OfTheMatricesReachTheOutput)
{
    const auto noise = [](std::size_t i, int c) {
        return static_cast<int>((i * 104729 + 977u * static_cast<unsigned>(c)) % 30011) - 15000;
    };
    const auto engine = engineAt(48000, 16);
    const auto changed = engineAt(48000, 16);
    for (auto& region : changed->regionMatrix) std::fill(region + 6, region + 12, -99.0f);
    for (int block = 0; block < 30; ++block) {
        runBlocks(*engine, 1, noise);
        runBlocks(*changed, 1, noise);
        EXPECT_EQ(0, std::memcmp(engine->outputBlock, changed->outputBlock, sizeof engine->outputBlock));
    }
}

TEST(BlockFlow, CountersRestAtSixteenGroupsAndAllBands)
{
    const auto engine = engineAt(96000, 16);
    runBlocks(*engine, 1, kSilence);
    EXPECT_EQ(engine->groupIndex, 16);
    EXPECT_EQ(engine->bandIndex, 64);
    for (int r = 0; r < 3; ++r) EXPECT_EQ(engine->outputPtr[r], engine->outputBlock[r]);
}
