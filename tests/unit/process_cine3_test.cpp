// Tests of cinema/process_cine3.cpp: whole blocks.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "filterbank/vector_pair_sums.h"
#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;
using tests::GuardedBuffer;

namespace
{

/// Runs blocks of 16-bit samples in a buffer of three slots; sample(frame, channel) gives the input.
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

TEST(ProcessCine3, SilenceGivesExactlyZero)
{
    const auto engine = engineAt(48000, 16);
    for (int block = 0; block < 40; ++block) {
        runBlocks(*engine, 1, kSilence);
        EXPECT_TRUE(outputIsZero(*engine));
    }
}

TEST(ProcessCine3, SilenceGivesZeroMeasuresAndSlowerSpeed)
{
    const auto engine = engineAt(48000, 16);
    runBlocks(*engine, 10, kSilence);
    engine->thresBands[1] = 0.75f;
    runBlocks(*engine, 1, kSilence);
    EXPECT_EQ(engine->thres[0], 0.75f) << "group 1 is copied to group 0";
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

TEST(ProcessCine3, OutputIsZeroFromThe31stBlockAfterTheLastInput)
{
    const auto engine = engineAt(48000, 16);
    runBlocks(*engine, 40, [](std::size_t i, int) { return i % 100 < 50 ? 32767 : -32768; });
    runBlocks(*engine, 30, kSilence);
    for (int block = 0; block < 200; ++block) {
        runBlocks(*engine, 1, kSilence);
        EXPECT_TRUE(outputIsZero(*engine)) << "block " << 31 + block;
    }
}

TEST(ProcessCine3, SynthesisTransformsTheMixedSubbands)
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

TEST(ProcessCine3, OutputDependsOnMatrixElements0To5Only)
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

TEST(ProcessCine3, LoopCountersEndAt16GroupsAnd64Bands)
{
    const auto engine = engineAt(96000, 16);
    runBlocks(*engine, 1, kSilence);
    EXPECT_EQ(engine->groupIndex, 16);
    EXPECT_EQ(engine->bandIndex, 64);
    for (int r = 0; r < 3; ++r) EXPECT_EQ(engine->outputPtr[r], engine->outputBlock[r]);
}

TEST(ProcessCine3, AveragesSignedSubbandsOfThePreviousBlock)
{
    const auto engine = engineAt(48000, 16);
    engine->subband[1][7] = -100.0f;
    engine->subbandAvg[1][7] = 50.0f;
    runBlocks(*engine, 1, kSilence);
    EXPECT_EQ(engine->subbandAvg[1][7], 0.9f * 50.0f + 0.1f * -100.0f);
    EXPECT_EQ(engine->subband[1][7], 0.0f);
}
