// Tests of io/write_output.cpp.
// SPDX-License-Identifier: MIT
#include "tests/reference/reference_engine.h"
#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random.h"
#include "tests/unit/io_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>

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

namespace
{

/// Writes the same rows with the engine and with the reference engine, which stores one sample after the other, and
/// compares all bytes.
class WrittenPair
{
public:
    explicit WrittenPair(std::int32_t bits) : engine(tests::engineAt(48000, bits))
    {
        connectRows(*engine);
        plain->bitsPerSample = bits;
        for (int k = 0; k < 3; ++k) plain->outputPtr[k] = plain->outputBlock[k];
        setRange(engine->outputScale, engine->sampleCeiling, engine->sampleFloor);
    }

    void setRange(float scale, std::int32_t ceiling, std::int32_t floor)
    {
        engine->outputScale = plain->outputScale = scale;
        engine->sampleCeiling = plain->sampleCeiling = ceiling;
        engine->sampleFloor = plain->sampleFloor = floor;
    }

    void fillRows(tests::Random& random)
    {
        for (int k = 0; k < 3; ++k) {
            for (int i = 0; i < 64; ++i) {
                const std::int32_t values[] = {0, INT32_MIN, INT32_MAX, static_cast<std::int32_t>(random.bits()),
                                               static_cast<std::int32_t>(random.bits())};
                engine->outputBlock[k][i] = plain->outputBlock[k][i] = random.oneOf(values);
            }
        }
    }

    /// offsets  bytes from a place in the buffer to the first sample of every role
    testing::AssertionResult writeTheSame(const std::ptrdiff_t (&offsets)[3], std::uint32_t frames,
                                          std::uint32_t channels, tests::Random& random)
    {
        constexpr std::size_t kSlots = 12; // more than any stride, for offsets on both sides
        GuardedBuffer written(64, kSlots, 32);
        std::generate_n(written.data(), written.size(), [&] { return static_cast<std::uint8_t>(random.bits()); });
        GuardedBuffer expected = written;
        const auto connectRoles = [&](auto& to, GuardedBuffer& buffer) {
            std::uint8_t* const place = buffer.data() + 64;
            to.SetChannelPtrs(place + offsets[0], place + offsets[1], place + offsets[2], nullptr);
        };
        connectRoles(*engine, written);
        connectRoles(*plain, expected);
        if (engine->WriteOutput(frames, channels) != plain->WriteOutput(frames, channels))
            return testing::AssertionFailure() << "status";
        if (written != expected) return testing::AssertionFailure() << "bytes";
        return written.guardsIntact();
    }

private:
    std::unique_ptr<ZRKTarn> engine;
    std::unique_ptr<reference::Engine> plain = std::make_unique<reference::Engine>();
};

} // namespace

TEST(WriteOutput, MatchesThePlainLoopForEveryPlaceOfTheRoles)
{
    constexpr std::uint64_t kSeed = 19;
    tests::Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    for (const std::int32_t bits : {12, 16, 20, 24, 32}) {
        WrittenPair pair(bits);
        const std::ptrdiff_t bytes = (bits + 7) / 8;
        for (std::uint32_t channels = 0; channels <= 8; ++channels) {
            // Slots before and after the first role, the same one, and places between slots.
            for (std::ptrdiff_t second = -2 * bytes - 1; second <= 3 * bytes && !HasFailure(); ++second) {
                for (std::ptrdiff_t third = -2 * bytes - 1; third <= 3 * bytes && !HasFailure(); ++third) {
                    pair.fillRows(random);
                    const std::uint32_t frames = random.chance(4) ? random.below(65) : 64;
                    EXPECT_TRUE(pair.writeTheSame({0, second, third}, frames, channels, random))
                        << bits << " bits, " << channels << " channels, " << frames << " frames, roles at 0, " << second
                        << " and " << third;
                }
            }
        }
    }
}

TEST(WriteOutput, MatchesThePlainLoopForEveryRange)
{
    constexpr std::uint64_t kSeed = 20;
    tests::Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const std::int32_t bits : {16, 24, 32}) {
        WrittenPair pair(bits);
        const std::ptrdiff_t bytes = bits / 8;
        for (const float scale : {0x1p-15f, 0.3f, 1.0f, 2.0f, 0x1p100f, kInfinity, 0.0f, -1.0f, 0x1p-149f, -kInfinity,
                                  std::numeric_limits<float>::quiet_NaN()}) {
            for (const std::int32_t ceiling : {0, 1, 32767, 1 << 24, (1 << 24) + 1, INT32_MAX, -1, INT32_MIN}) {
                for (const std::int32_t floor : {0, -1, -32768, -(1 << 24), -(1 << 24) - 1, INT32_MIN, 1, INT32_MAX}) {
                    pair.setRange(scale, ceiling, floor);
                    pair.fillRows(random);
                    EXPECT_TRUE(pair.writeTheSame({0, bytes, 2 * bytes}, 64, 6, random))
                        << bits << " bits, scale " << scale << ", from " << floor << " to " << ceiling;
                }
            }
        }
    }
}
