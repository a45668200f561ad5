// Tests of io/write_output.cpp.
// SPDX-License-Identifier: MIT
#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"
#include "tests/unit/io_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

using tests::connect;
using tests::connectRows;
using tests::engineAt;
using tests::GuardedBuffer;

namespace
{

/// The host sample of one value of front left.
std::int32_t writtenSample(std::int32_t bits, std::int32_t value)
{
    const auto engine = engineAt(48000, bits);
    GuardedBuffer buffer(1, 4, static_cast<std::uint32_t>(bits));
    connect(*engine, buffer);
    connectRows(*engine);
    engine->outputBlock[0][0] = value;
    EXPECT_EQ(engine->WriteOutput(1, 4), 1u);
    EXPECT_TRUE(buffer.guardsIntact());
    return buffer.get(0, 0);
}

} // namespace

TEST(WriteOutput, RoundsHalfAwayFromZeroAndClips)
{
    EXPECT_EQ(writtenSample(16, 1 << 15), 1);
    EXPECT_EQ(writtenSample(16, 1 << 30), 32767);
    EXPECT_EQ(writtenSample(16, -(1 << 30)), -32768);
    EXPECT_EQ(writtenSample(16, INT32_MAX), 32767);
    EXPECT_EQ(writtenSample(16, INT32_MIN), -32768);
    EXPECT_EQ(writtenSample(16, 0), 0);
    EXPECT_EQ(writtenSample(16, 16000), 0);
    EXPECT_EQ(writtenSample(16, -16500), -1);
}

TEST(WriteOutput, SaturatesAtFullScaleOf32Bits)
{
    EXPECT_EQ(writtenSample(32, 1 << 30), INT32_MAX);
    EXPECT_EQ(writtenSample(32, INT32_MAX), INT32_MAX);
    EXPECT_EQ(writtenSample(32, -(1 << 30)), INT32_MIN);
    EXPECT_EQ(writtenSample(32, INT32_MIN), INT32_MIN);
    EXPECT_EQ(writtenSample(32, 1 << 20), 1 << 21);
}

TEST(WriteOutput, ClipsToTheSampleWidth)
{
    EXPECT_EQ(writtenSample(20, INT32_MAX), 524287);
    EXPECT_EQ(writtenSample(20, INT32_MIN), -524288);
    EXPECT_EQ(writtenSample(24, INT32_MAX), 8388607);
    EXPECT_EQ(writtenSample(24, INT32_MIN), -8388608);
}

TEST(WriteOutput, ZeroIsAllZeroBytes)
{
    for (const int bits : {16, 24, 32}) {
        const auto engine = engineAt(48000, bits);
        GuardedBuffer buffer(64, 3, static_cast<std::uint32_t>(bits));
        const GuardedBuffer zeros = buffer;
        std::fill_n(buffer.data(), buffer.size(), std::uint8_t{0xff});
        connect(*engine, buffer);
        connectRows(*engine);
        EXPECT_EQ(engine->WriteOutput(64, 3), 1u);
        EXPECT_EQ(buffer, zeros);
    }
}

TEST(WriteOutput, ZeroFramesWriteNothing)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(1, 3, 16);
    const auto before = buffer;
    connect(*engine, buffer);
    connectRows(*engine);
    engine->outputBlock[0][0] = 1 << 29;
    EXPECT_EQ(engine->WriteOutput(0, 3), 1u);
    EXPECT_EQ(buffer, before);
}

TEST(WriteOutput, UnsupportedWidthsWriteNothingAndReturn0)
{
    for (const int bits : {0, 1, 8, 33, 64}) {
        const auto engine = engineAt(48000, bits);
        GuardedBuffer buffer(64, 3, 16);
        const auto before = buffer;
        connect(*engine, buffer);
        connectRows(*engine);
        engine->outputBlock[0][0] = 1 << 29;
        EXPECT_EQ(engine->WriteOutput(64, 3), 0u);
        EXPECT_EQ(buffer, before);
    }
}

TEST(WriteOutput, LastChannelWinsASharedSlot)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(1, 1, 16);
    engine->SetChannelPtrs(buffer.data(), buffer.data(), buffer.data(), buffer.data());
    connectRows(*engine);
    engine->outputBlock[0][0] = 1 << 16;
    engine->outputBlock[1][0] = 2 << 16;
    engine->outputBlock[2][0] = 3 << 16;
    engine->WriteOutput(1, 1);
    EXPECT_EQ(buffer.get(0, 0), 6);
}

TEST(WriteOutput, LeavesOtherSlotsUnchanged)
{
    const auto engine = engineAt(48000, 24);
    GuardedBuffer buffer(64, 5, 24);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t slot = 0; slot < 5; ++slot) buffer.set(i, slot, 77);
    connect(*engine, buffer);
    connectRows(*engine);
    EXPECT_EQ(engine->WriteOutput(64, 5), 1u);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t slot = 0; slot < 5; ++slot) EXPECT_EQ(buffer.get(i, slot), slot < 3 ? 0 : 77);
}

TEST(WriteOutput, ReadsCallerRowsSampleBySample)
{
    // A row in the host buffer itself: every second sample is overwritten before it is read.
    const auto engine = engineAt(48000, 32);
    std::int32_t buffer[16];
    std::int32_t expected[16];
    for (int i = 0; i < 16; ++i) buffer[i] = expected[i] = 1000 * (i + 1);
    std::int32_t spare[24] = {};
    connectRows(*engine);
    engine->outputPtr[0] = buffer;
    auto* const slot = reinterpret_cast<std::uint8_t*>(buffer);
    auto* const elsewhere = reinterpret_cast<std::uint8_t*>(spare);
    engine->SetChannelPtrs(slot, elsewhere, elsewhere, elsewhere);
    EXPECT_EQ(engine->WriteOutput(8, 2), 1u);
    for (int i = 0; i < 8; ++i) expected[2 * i] = 2 * expected[i]; // 32 bits: the scale is 2
    for (int i = 0; i < 16; ++i) EXPECT_EQ(buffer[i], expected[i]) << i;
}
