// Tests of io/read_input.cpp.
// SPDX-License-Identifier: MIT
#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random.h"
#include "tests/unit/io_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

using tests::connect;
using tests::engineAt;
using tests::GuardedBuffer;

namespace
{

constexpr float kGain = 90.50966644287109f;

/// The engine's value of one left sample.
float readSample(std::int32_t bits, std::int64_t sample)
{
    const auto engine = engineAt(48000, bits);
    GuardedBuffer buffer(1, 2, static_cast<std::uint32_t>(bits));
    buffer.set(0, 0, sample);
    connect(*engine, buffer);
    EXPECT_EQ(engine->ReadInputChannels(1, 2), 0u);
    return engine->inputHistory[0][960];
}

/// The engine's value of a sample of 16, 24 or 32 bits at a position.
float plainlyRead(const std::uint8_t* position, std::ptrdiff_t bytes, float scale)
{
    std::uint32_t bits = 0;
    for (std::ptrdiff_t j = 0; j < bytes; ++j) bits |= std::uint32_t{position[j]} << (32 - 8 * bytes + 8 * j);
    const auto sample = static_cast<std::int32_t>(bits) / (1 << (32 - 8 * bytes));
    const float scaled = static_cast<float>(sample) * scale;
    if (sample == 0) return 0.0f;
    return (sample > 0 ? std::floor(scaled + 0.5f) : std::ceil(scaled - 0.5f)) * kGain;
}

} // namespace

TEST(ReadInput, SilenceIsPositiveZero)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(64, 2, 16);
    connect(*engine, buffer);
    for (auto& row : engine->inputHistory) std::fill(std::begin(row), std::end(row), -7.0f);
    engine->ReadInputChannels(64, 2);
    for (const auto& row : engine->inputHistory) {
        for (int i = 0; i < 960; ++i) EXPECT_EQ(row[i], -7.0f);
        for (int i = 960; i < 1024; ++i) EXPECT_EQ(std::bit_cast<std::uint32_t>(row[i]), 0u);
    }
}

TEST(ReadInput, RoundsHalfAwayFromZeroBySign)
{
    EXPECT_EQ(readSample(16, 1), 2965911.25f);
    EXPECT_EQ(readSample(16, 1), 32769.0f * kGain);
    EXPECT_EQ(readSample(16, -1), -2965911.25f);
    EXPECT_EQ(readSample(32, 1), 1.0f * kGain);
    EXPECT_EQ(readSample(32, -1), -1.0f * kGain);
    EXPECT_EQ(readSample(32, 2), 1.0f * kGain);
    EXPECT_EQ(readSample(32, 3), 2.0f * kGain);
    EXPECT_EQ(readSample(32, -3), -2.0f * kGain);
}

TEST(ReadInput, ExtendsTheSignOfTheContainer)
{
    EXPECT_EQ(readSample(24, 0x7fffff), std::floor(8388607.0f * std::bit_cast<float>(0x43000001u) + 0.5f) * kGain);
    EXPECT_EQ(readSample(24, 0x800000), std::ceil(-8388608.0f * std::bit_cast<float>(0x43000001u) - 0.5f) * kGain);
    EXPECT_EQ(readSample(16, 0x8000), std::ceil(-32768.0f * 32768.5f - 0.5f) * kGain);
    EXPECT_LT(readSample(32, 0x80000000), 0.0f);
    EXPECT_EQ(readSample(20, 0xfffff0), readSample(20, -16)) << "20 bits in three bytes, sign-extended by the host";
}

TEST(ReadInput, SaturatesSamplesBeyondTheirWidth)
{
    EXPECT_EQ(readSample(9, 0x7fff), 2147483648.0f * kGain);
    EXPECT_EQ(readSample(9, -0x8000), -2147483648.0f * kGain);
}

TEST(ReadInput, PadsAShortBlockWithSilence)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(64, 2, 16);
    for (std::size_t i = 0; i < 64; ++i) {
        buffer.set(i, 0, 100);
        buffer.set(i, 1, -200);
    }
    connect(*engine, buffer);
    for (const std::uint32_t frames : {0u, 10u, 63u, 64u}) {
        engine->ReadInputChannels(64, 2);
        engine->ReadInputChannels(frames, 2);
        for (std::uint32_t i = 0; i < 64; ++i) {
            EXPECT_EQ(engine->inputHistory[0][960 + i], i < frames ? readSample(16, 100) : 0.0f);
            EXPECT_EQ(engine->inputHistory[1][960 + i], i < frames ? readSample(16, -200) : 0.0f);
        }
    }
}

TEST(ReadInput, UnsupportedWidthsAreSilence)
{
    for (const int bits : {-100, -1, 0, 1, 8, 33, 40, 64, 0x7fffffff}) {
        const auto engine = engineAt(48000, bits);
        std::fill(std::begin(engine->inputHistory[0]), std::end(engine->inputHistory[0]), 1.0f);
        std::fill(std::begin(engine->inputHistory[1]), std::end(engine->inputHistory[1]), 1.0f);
        engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(engine->ReadInputChannels(64, 2), 0u);
        for (int i = 960; i < 1024; ++i) {
            EXPECT_EQ(engine->inputHistory[0][i], 0.0f);
            EXPECT_EQ(engine->inputHistory[1][i], 0.0f);
        }
    }
}

TEST(ReadInput, ReadsTheSlotsOfItsChannels)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(64, 6, 16);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t slot = 0; slot < 6; ++slot) buffer.set(i, slot, static_cast<std::int64_t>(100 * i + slot));
    engine->SetChannelPtrs(buffer.data() + 2 * 3, buffer.data() + 2 * 5, nullptr, nullptr);
    engine->ReadInputChannels(64, 6);
    for (std::size_t i = 0; i < 64; ++i) {
        EXPECT_EQ(engine->inputHistory[0][960 + i], readSample(16, static_cast<std::int64_t>(100 * i + 3)));
        EXPECT_EQ(engine->inputHistory[1][960 + i], readSample(16, static_cast<std::int64_t>(100 * i + 5)));
    }
}

TEST(ReadInput, ReadsEveryLayoutOfTheSlots)
{
    // The buffer ends with the last byte of a slot, so that the sanitizers find an access beyond it.
    tests::Random random(1);
    for (const std::ptrdiff_t bytes : {2, 3, 4}) {
        const auto engine = engineAt(48000, static_cast<std::int32_t>(8 * bytes));
        for (const std::uint32_t channels : {0u, 1u, 2u, 3u, 6u, 8u}) {
            const std::ptrdiff_t stride = bytes * static_cast<std::ptrdiff_t>(channels);
            for (std::ptrdiff_t distance = -stride - 5; distance <= stride + 5; ++distance) {
                for (const std::uint32_t frames : {1u, 63u, 64u}) {
                    const std::ptrdiff_t apart = distance < 0 ? -distance : distance;
                    std::vector<std::uint8_t> buffer(static_cast<std::size_t>(apart + stride * (frames - 1) + bytes));
                    for (std::uint8_t& byte : buffer) byte = static_cast<std::uint8_t>(random.bits());
                    std::uint8_t* const left = buffer.data() + (distance < 0 ? apart : 0);
                    std::uint8_t* const right = left + distance;
                    engine->SetChannelPtrs(left, right, nullptr, nullptr);
                    engine->ReadInputChannels(frames, channels);
                    for (std::uint32_t i = 0; i < 64; ++i) {
                        const std::ptrdiff_t frame = stride * i;
                        const bool read = i < frames;
                        ASSERT_EQ(engine->inputHistory[0][960 + i],
                                  read ? plainlyRead(left + frame, bytes, engine->inputScale) : 0.0f)
                            << "left, " << bytes << " bytes, " << channels << " slots, distance " << distance;
                        ASSERT_EQ(engine->inputHistory[1][960 + i],
                                  read ? plainlyRead(right + frame, bytes, engine->inputScale) : 0.0f)
                            << "right, " << bytes << " bytes, " << channels << " slots, distance " << distance;
                    }
                }
            }
        }
    }
}
