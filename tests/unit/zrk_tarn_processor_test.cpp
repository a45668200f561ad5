// Tests of host/zrk_tarn_processor.cpp: defaults, setup and modes.
// SPDX-License-Identifier: MIT
#include "tests/unit/process_buffer.h"

#include <gtest/gtest.h>

using tests::GuardedBuffer;
using tests::noiseBuffer;
using tests::process;

TEST(Processor, StartsWithTheDefaultsOfItsFields)
{
    const zrk_tarn_processor_t processor;
    EXPECT_EQ(processor.engine, nullptr);
    EXPECT_EQ(processor.mode, 0);
    EXPECT_EQ(processor.option, 0);
    EXPECT_EQ(processor.mixFraction, 1.0f);
    EXPECT_EQ(processor.sampleRate, 0u);
    EXPECT_EQ(processor.bitsPerSample, 0u);
    EXPECT_EQ(processor.channelCount, 0u);
    for (const std::uint32_t code : processor.assignment) EXPECT_EQ(code, 0u);
    for (const std::int32_t slot :
         {processor.leftSlot, processor.rightSlot, processor.centreSlot, processor.auxSlotA, processor.auxSlotB})
        EXPECT_EQ(slot, -1);
    for (const auto& row : processor.remapCoeff)
        for (const std::uint32_t gain : row) EXPECT_EQ(gain, 0u);
}

TEST(Processor, WithoutSetupTheEngineIsInMode1)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer(64, 3, 16);
    process(processor, buffer, {0x2000, 0x4000, 0x200});
    EXPECT_EQ(processor.engine->modeOneFlag, 1);
    EXPECT_EQ(processor.engine->holdMidSmoothing, 0);
    EXPECT_EQ(processor.engine->mixFraction, 1.0f);
    EXPECT_EQ(processor.engine->outputChannels, 3);
}

TEST(Processor, SetupTakesEffectAtTheNextChangeOfFormat)
{
    zrk_tarn_processor_t processor;
    zrk_tarn_processor_t untouched;
    for (auto* each : {&processor, &untouched}) {
        GuardedBuffer buffer = noiseBuffer(640, 3, 16);
        process(*each, buffer, {0x2000, 0x4000, 0x200});
    }
    EXPECT_EQ(processor.setup(1, 7, 0.25f), 0u);
    GuardedBuffer a = noiseBuffer(640, 3, 16, 2);
    GuardedBuffer b = a;
    process(processor, a, {0x2000, 0x4000, 0x200});
    process(untouched, b, {0x2000, 0x4000, 0x200});
    EXPECT_EQ(a, b);
    EXPECT_EQ(processor.engine->mixFraction, 1.0f);

    process(processor, a, {0x2000, 0x4000, 0x200}, 96000);
    EXPECT_EQ(processor.engine->holdMidSmoothing, 1);
    EXPECT_EQ(processor.engine->mixFraction, 0.25f);

    processor.setup(0, 0, 0.5f);
    GuardedBuffer wide = noiseBuffer(64, 3, 24);
    process(processor, wide, {0x2000, 0x4000, 0x200}, 96000, 24);
    EXPECT_EQ(processor.engine->modeOneFlag, 1);
    EXPECT_EQ(processor.engine->mixFraction, 0.5f);
}

TEST(Processor, MapsModesToEngineModes)
{
    struct Row
    {
        std::int32_t mode;
        std::int32_t modeOne;
        std::int32_t holdMid;
    };
    // Mode 2 becomes the engine's 4, which it rejects: a fresh engine keeps both flags at zero.
    for (const Row& row : {Row{0, 1, 0}, Row{1, 0, 1}, Row{2, 0, 0}, Row{3, 0, 1}, Row{-1, 0, 1}}) {
        zrk_tarn_processor_t processor;
        processor.setup(row.mode, 0, 1.0f);
        GuardedBuffer buffer(64, 3, 16);
        process(processor, buffer, {0x2000, 0x4000, 0x200});
        EXPECT_EQ(processor.engine->modeOneFlag, row.modeOne) << row.mode;
        EXPECT_EQ(processor.engine->holdMidSmoothing, row.holdMid) << row.mode;
    }
}
