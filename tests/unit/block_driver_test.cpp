// Tests of host/block_driver.cpp.
// SPDX-License-Identifier: MIT
#include "tests/support/engine.h"
#include "tests/support/record_compare.h"
#include "tests/unit/process_buffer.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using tests::codes;
using tests::GuardedBuffer;
using tests::noiseBuffer;
using tests::process;

namespace
{

/// Whether a slot differs between two buffers in any frame.
bool slotDiffers(const GuardedBuffer& a, const GuardedBuffer& b, std::size_t frames, std::size_t slot)
{
    for (std::size_t i = 0; i < frames; ++i)
        if (a.get(i, slot) != b.get(i, slot)) return true;
    return false;
}

} // namespace

TEST(BlockDriver, FirstSlotOfARoleWins)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer(64, 8, 16);
    process(processor, buffer, {0x8000, 0x2000, 0x10000, 0x4000, 0x1000, 0x200, 0x40000, 0x40000});
    EXPECT_EQ(processor.leftSlot, 0);
    EXPECT_EQ(processor.rightSlot, 2);
    EXPECT_EQ(processor.centreSlot, 4);
    EXPECT_EQ(processor.auxSlotA, 6);
    EXPECT_EQ(processor.auxSlotB, -1);
}

TEST(BlockDriver, CutsBuffersIntoBlocksOf64)
{
    for (const auto& [frames, blocks] : {std::pair{0u, std::vector<std::uint32_t>{}},
                                         {1u, {1}},
                                         {63u, {63}},
                                         {64u, {64}},
                                         {65u, {64, 1}},
                                         {130u, {64, 64, 2}}}) {
        GuardedBuffer buffer = noiseBuffer(frames, 3, 16);
        GuardedBuffer expected = buffer;
        zrk_tarn_processor_t processor;
        auto assignment = codes({0x2000, 0x4000, 0x200});
        processor.process(buffer.data(), frames, 3, 48000, 16, &assignment);

        const auto engine = tests::engineAt(48000, 16);
        std::uint8_t* block = expected.data();
        for (const std::uint32_t length : blocks) {
            engine->SetChannelPtrs(block, block + 2, block + 4, block + 4);
            engine->ProcessCine3InterLeave(length, 3);
            block += length * 6;
        }
        EXPECT_EQ(buffer, expected) << frames << " frames";
        EXPECT_TRUE(buffer.guardsIntact());
        EXPECT_TRUE(tests::sameRecord(*processor.engine, buffer.data(), *engine, expected.data()));
    }
}

TEST(BlockDriver, WithoutACentreSlotNothingIsProcessed)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer = noiseBuffer(128, 2, 16);
    const auto before = buffer;
    process(processor, buffer, {0x2000, 0x4000});
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(processor.engine->spectrumL, 0.0f);
}

TEST(BlockDriver, ThreeSlotsTakeThePlainPath)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer = noiseBuffer(1280, 3, 16);
    const auto before = buffer;
    process(processor, buffer, {0x8000, 0x10000, 0x1000});
    for (std::size_t slot = 0; slot < 3; ++slot) EXPECT_TRUE(slotDiffers(buffer, before, 1280, slot));
}

TEST(BlockDriver, EightSlotsTakeTheRemapPathOnlyWithBothRemapCodes)
{
    // Without gains the remap path writes silence to its four slots; the plain path writes three outputs.
    {
        zrk_tarn_processor_t processor;
        GuardedBuffer buffer = noiseBuffer(1280, 8, 16);
        const auto before = buffer;
        process(processor, buffer, {0x2000, 0x4000, 0x200, 0x40000, 1, 2, 3, 4});
        for (std::size_t slot = 0; slot < 8; ++slot)
            EXPECT_EQ(slotDiffers(buffer, before, 1280, slot), slot < 3) << slot;
    }
    {
        zrk_tarn_processor_t processor;
        GuardedBuffer buffer = noiseBuffer(1280, 8, 16);
        const auto before = buffer;
        process(processor, buffer, {0x2000, 0x4000, 0x200, 0x40000, 1, 2, 3, 0x80000});
        for (std::size_t slot = 0; slot < 8; ++slot) {
            const bool destination = slot == 0 || slot == 1 || slot == 3 || slot == 7;
            EXPECT_EQ(slotDiffers(buffer, before, 1280, slot), destination) << slot;
            if (destination) {
                EXPECT_EQ(buffer.get(1279, slot), 0);
            }
        }
    }
}

TEST(BlockDriver, RemapGainsTakeEffectAtTheNextCall)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer first = noiseBuffer(1280, 8, 24);
    process(processor, first, {0x2000, 0x4000, 0x40000, 0x80000, 0, 0, 0, 0}, 48000, 24);
    EXPECT_EQ(first.get(1279, 3), 0);

    unsigned coeff[3][4] = {{0x10000000, 0, 0, 0}, {0, 0x10000000, 0, 0}, {0, 0, 0x10000000, 0xf0000000}};
    EXPECT_EQ(processor.set_remap_coeff(coeff), 0u);
    GuardedBuffer second = noiseBuffer(1280, 8, 24, 2);
    process(processor, second, {0x2000, 0x4000, 0x40000, 0x80000, 0, 0, 0, 0}, 48000, 24);
    EXPECT_NE(second.get(1279, 2), 0);
    EXPECT_EQ(second.get(1279, 2), -second.get(1279, 3));
}

TEST(BlockDriver, EightSlotsWithoutALeftCodePassUnchanged)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer = noiseBuffer(128, 8, 16);
    const auto before = buffer;
    process(processor, buffer, {1, 0x4000, 0x200, 0x40000, 0x80000, 0, 0, 0});
    EXPECT_EQ(buffer, before);
}

TEST(BlockDriver, ChangeOfCodesDoesNotInitializeAgain)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer = noiseBuffer(640, 3, 16);
    process(processor, buffer, {0x2000, 0x4000, 0x200}, 44100);
    const float alpha = processor.engine->mid[0];
    process(processor, buffer, {0x200, 0x4000, 0x2000}, 44100);
    EXPECT_EQ(processor.engine->mid[0], alpha);
    EXPECT_EQ(processor.leftSlot, 2);
    EXPECT_EQ(processor.centreSlot, 0);
}

TEST(BlockDriver, ChangeOfWidthInitializesAgain)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer narrow = noiseBuffer(64, 3, 16);
    GuardedBuffer wide = noiseBuffer(64, 3, 24);
    process(processor, narrow, {0x2000, 0x4000, 0x200}, 44100, 16);
    ZRKTarn* const engine = processor.engine;
    process(processor, wide, {0x2000, 0x4000, 0x200}, 44100, 24);
    EXPECT_EQ(processor.engine, engine);
    EXPECT_EQ(engine->mid[0], 0.025f * 1.088f * 1.088f);
    EXPECT_EQ(engine->bitsPerSample, 24);
}

TEST(BlockDriver, RejectedRateIsNotTriedAgain)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer = noiseBuffer(64, 3, 16);
    process(processor, buffer, {0x2000, 0x4000, 0x200}, 44100);
    process(processor, buffer, {0x2000, 0x4000, 0x200}, 22050);
    EXPECT_EQ(processor.engine->rateCode, 0);
    processor.engine->rateCode = -1;
    process(processor, buffer, {0x2000, 0x4000, 0x200}, 22050);
    EXPECT_EQ(processor.engine->rateCode, -1);
}

TEST(BlockDriver, TooManySlotsAreUnchangedAndKeepTheAssignment)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer three = noiseBuffer(64, 3, 16);
    process(processor, three, {0x2000, 0x4000, 0x200});

    GuardedBuffer nine = noiseBuffer(64, 9, 16);
    const auto before = nine;
    audio_channel_assignment_t assignment = codes({0x4000, 0x2000, 0x200, 0, 0, 0, 0, 0});
    EXPECT_EQ(processor.process(nine.data(), 64, 9, 48000, 16, &assignment), 0u);
    EXPECT_EQ(processor.process(nine.data(), 64, 0xffffffff, 48000, 16, &assignment), 0u);
    EXPECT_EQ(nine, before);
    EXPECT_EQ(processor.channelCount, 3u);
    EXPECT_EQ(processor.leftSlot, 0);
}

TEST(BlockDriver, OffsetsExceed4GiB)
{
    // Containers of an unsupported width are not read or written, so the buffer can be one byte.
    zrk_tarn_processor_t processor;
    std::uint8_t byte = 0;
    audio_channel_assignment_t assignment = codes({0x2000, 0x4000, 0x200, 0, 0, 0, 0, 0});
    processor.process(&byte, 128, 8, 48000, 0x80000000, &assignment);
    const std::size_t bytesPerSample = 0x10000000;
    const auto base = reinterpret_cast<std::uintptr_t>(&byte);
    for (std::size_t slot = 0; slot < 3; ++slot)
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(processor.engine->channelPtr[slot]) - base,
                  (64 * 8 + slot) * bytesPerSample);
}

TEST(BlockDriver, NullPointersProcessNothing)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer = noiseBuffer(64, 3, 16);
    const auto before = buffer;
    audio_channel_assignment_t assignment = codes({0x2000, 0x4000, 0x200});
    EXPECT_EQ(processor.process(buffer.data(), 64, 3, 48000, 16, nullptr), 0u);
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(processor.channelCount, 0u);
    EXPECT_EQ(processor.process(nullptr, 64, 3, 48000, 16, &assignment), 0u);
    EXPECT_EQ(processor.process(nullptr, 0, 3, 48000, 16, &assignment), 0u);
    EXPECT_EQ(processor.process(nullptr, 0, 0, 48000, 16, nullptr), 0u);
    EXPECT_EQ(processor.engine->spectrumL, 0.0f);
}

TEST(BlockDriver, ZeroSlotsClearTheAssignment)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer = noiseBuffer(64, 3, 16);
    process(processor, buffer, {0x2000, 0x4000, 0x200});
    EXPECT_EQ(processor.process(buffer.data(), 64, 0, 48000, 16, nullptr), 0u);
    EXPECT_EQ(processor.channelCount, 0u);
    EXPECT_EQ(processor.leftSlot, -1);
    EXPECT_EQ(processor.centreSlot, -1);
}

TEST(BlockDriver, UnsupportedWidthLeavesTheBufferAndProcessesSilence)
{
    for (const std::uint32_t bits : {1u, 8u, 40u, 64u}) {
        zrk_tarn_processor_t processor;
        GuardedBuffer buffer = noiseBuffer(130, 3, bits);
        const auto before = buffer;
        process(processor, buffer, {0x2000, 0x4000, 0x200}, 48000, bits);
        EXPECT_EQ(buffer, before);
        EXPECT_EQ(processor.engine->groupIndex, 16);
    }
}
