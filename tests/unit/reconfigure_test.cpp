// Tests of host/reconfigure.h: new modes and new states without a change of the stream format.
// SPDX-License-Identifier: MIT
#include "host/reconfigure.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random.h"
#include "tests/support/record_compare.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

using tests::GuardedBuffer;

namespace
{

constexpr std::uint32_t kFrames = 640;

GuardedBuffer processNoise(zrk_tarn_processor_t& processor, std::uint64_t seed, std::uint32_t rateHz)
{
    tests::Random random(seed);
    GuardedBuffer buffer(kFrames, 3, 16);
    for (std::size_t i = 0; i < kFrames; ++i)
        for (std::size_t slot = 0; slot < 2; ++slot) buffer.set(i, slot, tests::sampleOf(0.5 * random.uniform(), 16));
    audio_channel_assignment_t roles{{0x2000, 0x4000, 0x200}};
    processor.process(buffer.data(), kFrames, 3, rateHz, 16, &roles);
    return buffer;
}

/// Checks that an engine has the configuration of one that was set up with the mode from the start.
void expectConfigurationOf(std::int32_t mode, std::uint32_t rateHz, const ZRKTarn& engine)
{
    zrk_tarn_processor_t fresh;
    fresh.setup(mode, 0, 0.5f);
    processNoise(fresh, 1, rateHz);
    const ZRKTarn& expected = *fresh.engine;
    EXPECT_TRUE(tests::sameBits("slower", engine.slower, expected.slower));
    EXPECT_TRUE(tests::sameBits("slow", engine.slow, expected.slow));
    EXPECT_TRUE(tests::sameBits("mid", engine.mid, expected.mid));
    EXPECT_TRUE(tests::sameBits("fast", engine.fast, expected.fast));
    EXPECT_EQ(engine.modeOneFlag, expected.modeOneFlag);
    EXPECT_EQ(engine.holdMidSmoothing, expected.holdMidSmoothing);
    EXPECT_EQ(engine.mixFraction, expected.mixFraction);
    EXPECT_EQ(engine.mixFractionComplement, expected.mixFractionComplement);
}

} // namespace

TEST(Reconfigure, ChangesTheModeAndKeepsTheHistories)
{
    for (const std::uint32_t rateHz : {44100u, 48000u, 96000u}) {
        zrk_tarn_processor_t processor;
        processNoise(processor, 1, rateHz);
        const ZRKTarn before = *processor.engine;
        for (const std::int32_t mode : {1, 0, 0, 1}) {
            processor.setup(mode, 0, 0.5f);
            zrk_tarn::reconfigure(processor);
            expectConfigurationOf(mode, rateHz, *processor.engine);
        }
        EXPECT_TRUE(tests::sameBits("inputHistory", before.inputHistory, processor.engine->inputHistory));
        EXPECT_TRUE(tests::sameBits("synthHistory", before.synthHistory, processor.engine->synthHistory));
        EXPECT_TRUE(tests::sameBits("powL", before.powL, processor.engine->powL));
        EXPECT_TRUE(tests::sameBits("lrSlower", before.lrSlower, processor.engine->lrSlower));
        EXPECT_EQ(processor.sampleRate, rateHz);

        // The next call has the same format and must not initialize again.
        const float mid = processor.engine->mid[0];
        processNoise(processor, 2, rateHz);
        EXPECT_EQ(processor.engine->mid[0], mid);
    }
}

TEST(Reconfigure, RestartedProcessorGivesTheBytesOfANewOne)
{
    zrk_tarn_processor_t processor;
    zrk_tarn_processor_t fresh;
    processNoise(processor, 1, 44100);
    zrk_tarn::restart(processor);
    EXPECT_EQ(processNoise(processor, 2, 44100), processNoise(fresh, 2, 44100));
    EXPECT_TRUE(tests::sameBits("mid", processor.engine->mid, fresh.engine->mid));
}

TEST(Reconfigure, DoesNothingWithoutAnEngine)
{
    zrk_tarn_processor_t processor;
    zrk_tarn::reconfigure(processor);
    zrk_tarn::restart(processor);
    EXPECT_EQ(processor.engine, nullptr);
}
