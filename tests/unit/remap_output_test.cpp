// Tests of io/remap_output.cpp.
// SPDX-License-Identifier: MIT
#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"
#include "tests/unit/io_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

using tests::connect;
using tests::connectRows;
using tests::engineAt;
using tests::GuardedBuffer;

namespace
{

constexpr int kUnity = 1 << 28;

/// An engine with a matrix, whose rows hold host samples, connected to a buffer of four slots.
class Remapped
{
public:
    Remapped(std::int32_t bits, const int (&coeff)[3][4])
        : engineState(engineAt(48000, bits)), slots(64, 4, static_cast<std::uint32_t>(bits))
    {
        connect(*engineState, slots);
        connectRows(*engineState);
        int copy[3][4];
        std::copy(&coeff[0][0], &coeff[0][0] + 12, &copy[0][0]);
        EXPECT_EQ(engineState->SetRemapCoeff(copy), 0u);
        for (std::size_t i = 0; i < 64; ++i)
            for (std::size_t slot = 0; slot < 4; ++slot) slots.set(i, slot, 99);
    }

    /// The four slots of frame 0 for one sample per row.
    std::array<std::int32_t, 4> mix(std::int32_t frontLeft, std::int32_t frontRight, std::int32_t centre)
    {
        engineState->outputBlock[0][0] = frontLeft;
        engineState->outputBlock[1][0] = frontRight;
        engineState->outputBlock[2][0] = centre;
        EXPECT_EQ(engineState->RemapOutput(1, 4), 1u);
        EXPECT_TRUE(slots.guardsIntact());
        return {slots.get(0, 0), slots.get(0, 1), slots.get(0, 2), slots.get(0, 3)};
    }

    ZRKTarn& engine() { return *engineState; }
    GuardedBuffer& buffer() { return slots; }

private:
    std::unique_ptr<ZRKTarn> engineState;
    GuardedBuffer slots;
};

using Slots = std::array<std::int32_t, 4>;

} // namespace

TEST(RemapOutput, IdentityCopiesAndSilencesTheFourthPosition)
{
    for (const int bits : {16, 24, 32}) {
        Remapped remapped(bits, {{kUnity, 0, 0, 0}, {0, kUnity, 0, 0}, {0, 0, kUnity, 0}});
        EXPECT_EQ(remapped.mix(1000, -2000, 3000), (Slots{1000, -2000, 3000, 0}));
    }
}

TEST(RemapOutput, ZeroMatrixSilencesAllPositions)
{
    for (const int bits : {16, 24, 32}) {
        Remapped remapped(bits, {});
        EXPECT_EQ(remapped.mix(1000, -2000, 3000), (Slots{0, 0, 0, 0}));
    }
}

TEST(RemapOutput, RoundsTowardsMinusInfinity)
{
    for (const int bits : {16, 24, 32}) {
        Remapped remapped(bits, {{kUnity / 2, 0, 0, 0}, {0, kUnity / 2, 0, 0}, {0, 0, 0, 0}});
        EXPECT_EQ(remapped.mix(-3, 3, 0), (Slots{-2, 1, 0, 0}));
    }
}

TEST(RemapOutput, WrapsInsteadOfClipping)
{
    Remapped remapped(16, {{kUnity, 0, 0, 0}, {kUnity, 0, 0, 0}, {0, 0, 0, 0}});
    EXPECT_EQ(remapped.mix(30000, 30000, 0)[0], -5536);
}

TEST(RemapOutput, NegativeUnityInvertsThePolarity)
{
    Remapped remapped(16, {{-kUnity, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}});
    EXPECT_EQ(remapped.mix(-32768, 0, 0)[0], -32768);
    EXPECT_EQ(remapped.mix(-32767, 0, 0)[0], 32767);
}

TEST(RemapOutput, MixesThreeTermsExactlyInEveryWidth)
{
    for (const int bits : {16, 24, 32}) {
        Remapped remapped(bits, {{kUnity / 4, 0, 0, 0}, {-kUnity / 8, 0, 0, 0}, {kUnity / 2 + 1, 0, 0, 0}});
        EXPECT_EQ(remapped.mix(1001, -77, 30001)[0], 250 + 9 + 15001);
    }
}

TEST(RemapOutput, SumsBeyond63BitsKeepTheirLowBytes)
{
    Remapped remapped(32, {{INT32_MIN, 0, 0, 0}, {INT32_MIN, 0, 0, 0}, {INT32_MIN, 0, 0, 0}});
    // 3 * 2^62 >> 28 = 3 * 2^34, of which the low 32 bits are zero.
    EXPECT_EQ(remapped.mix(INT32_MIN, INT32_MIN, INT32_MIN)[0], 0);
    // (2^62 + 2^62 - 2^31) >> 28 = 2^35 - 8.
    EXPECT_EQ(remapped.mix(INT32_MIN, INT32_MIN, 1)[0], -8);
}

TEST(RemapOutput, ZeroFramesConvertAndWriteNothing)
{
    Remapped remapped(16, {{kUnity, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}});
    const auto before = remapped.buffer();
    EXPECT_EQ(remapped.engine().RemapOutput(0, 4), 1u);

    // With a non-zero overlap, a conversion would change the output.
    std::fill(std::begin(remapped.engine().overlapNow[0]), std::end(remapped.engine().overlapNow[0]), 1e9f);
    EXPECT_EQ(remapped.engine().ProcessCine3InterLeaveRemap(0, 4), 0u);
    for (const std::int32_t value : remapped.engine().outputBlock[0]) EXPECT_EQ(value, 1000000000);
    EXPECT_EQ(remapped.buffer(), before);
}

TEST(RemapOutput, ConvertsTheFramesOfTheBlockForAnyContainer)
{
    const auto engine = engineAt(48000, 8);
    engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
    std::fill(std::begin(engine->overlapNow[2]), std::end(engine->overlapNow[2]), 1e9f);
    EXPECT_EQ(engine->ProcessCine3InterLeaveRemap(10, 8), 0u);
    for (int i = 0; i < 64; ++i) EXPECT_EQ(engine->outputBlock[2][i], i < 10 ? 119 : 1000000000);
}

TEST(RemapOutput, UnsupportedWidthsWriteNothingAndReturn0)
{
    for (const int bits : {0, 8, 40}) {
        const auto engine = engineAt(48000, bits);
        engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
        connectRows(*engine);
        EXPECT_EQ(engine->RemapOutput(64, 8), 0u);
    }
}

TEST(RemapOutput, InvalidTermCountsWriteNothing)
{
    Remapped remapped(16, {{kUnity, 0, 0, 0}, {0, kUnity, 0, 0}, {0, 0, kUnity, 0}});
    remapped.engine().remapTermCount[1] = 4;
    std::fill_n(remapped.engine().remapTermSource[1], 3, 0xffffffffu); // not read
    EXPECT_EQ(remapped.mix(1000, -2000, 3000), (Slots{1000, 99, 3000, 0}));
}

TEST(RemapOutput, FourByteContainersUseTheMatrix)
{
    Remapped remapped(32, {{kUnity, 0, 0, 0}, {0, kUnity, 0, 0}, {0, 0, kUnity, 0}});
    std::fill(std::begin(remapped.engine().remapTermCount), std::end(remapped.engine().remapTermCount), 0u);
    EXPECT_EQ(remapped.mix(1000, -2000, 3000), (Slots{1000, -2000, 3000, 0}));
}

TEST(RemapOutput, UnconfiguredEngineIsSilent)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(64, 8, 16);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t slot = 0; slot < 8; ++slot) buffer.set(i, slot, 5000);
    connect(*engine, buffer);
    EXPECT_EQ(engine->ProcessCine3InterLeaveRemap(64, 8), 0u);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t slot = 0; slot < 8; ++slot) EXPECT_EQ(buffer.get(i, slot), slot < 4 ? 0 : 5000);
}
