#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

using tests::engineAt;
using tests::GuardedBuffer;

namespace
{

constexpr float kGain = 90.50966644287109f;

void pointAt(ZRKTarn& engine, GuardedBuffer& buffer)
{
    const std::int32_t bytes = (engine.bitsPerSample + 7) / 8;
    std::uint8_t* slots[4];
    for (int i = 0; i < 4; ++i) slots[i] = buffer.data() + i * bytes;
    engine.SetChannelPtrs(slots[0], slots[1], slots[2], slots[3]);
}

/// The engine's value of one left sample.
float readSample(std::int32_t bits, std::int64_t sample)
{
    const auto engine = engineAt(48000, bits);
    GuardedBuffer buffer(1, 2, static_cast<std::uint32_t>(bits));
    buffer.set(0, 0, sample);
    pointAt(*engine, buffer);
    EXPECT_EQ(engine->ReadInputChannels(1, 2), 0u);
    return engine->inputHistory[0][960];
}

void pointAtRows(ZRKTarn& engine)
{
    for (int r = 0; r < 3; ++r) engine.outputPtr[r] = engine.outputBlock[r];
}

/// The host sample of one value of front left.
std::int32_t writtenSample(std::int32_t bits, std::int32_t value)
{
    const auto engine = engineAt(48000, bits);
    GuardedBuffer buffer(1, 4, static_cast<std::uint32_t>(bits));
    pointAt(*engine, buffer);
    pointAtRows(*engine);
    engine->outputBlock[0][0] = value;
    EXPECT_EQ(engine->WriteOutput(1, 4), 1u);
    EXPECT_TRUE(buffer.guardsIntact());
    return buffer.get(0, 0);
}

} // namespace

// --- Input
// ---------------------------------------------------------------------------------------------------------------

TEST(ReadInput, SilenceIsPositiveZeroBitForBit)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(64, 2, 16);
    pointAt(*engine, buffer);
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

TEST(ReadInput, ExtendsTheSignOfItsContainer)
{
    EXPECT_EQ(readSample(24, 0x7fffff), std::floor(8388607.0f * std::bit_cast<float>(0x43000001u) + 0.5f) * kGain);
    EXPECT_EQ(readSample(24, 0x800000), std::ceil(-8388608.0f * std::bit_cast<float>(0x43000001u) - 0.5f) * kGain);
    EXPECT_EQ(readSample(16, 0x8000), std::ceil(-32768.0f * 32768.5f - 0.5f) * kGain);
    EXPECT_LT(readSample(32, 0x80000000), 0.0f);
    EXPECT_EQ(readSample(20, 0xfffff0), readSample(20, -16)) << "20 bits in three bytes, sign-extended by the host";
}

TEST(ReadInput, SaturatesWhatAContainerHoldsBeyondItsWidth)
{
    EXPECT_EQ(readSample(9, 0x7fff), 2147483648.0f * kGain);
    EXPECT_EQ(readSample(9, -0x8000), -2147483648.0f * kGain);
}

TEST(ReadInput, EndsAShortBlockInSilence)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(64, 2, 16);
    for (std::size_t i = 0; i < 64; ++i) {
        buffer.set(i, 0, 100);
        buffer.set(i, 1, -200);
    }
    pointAt(*engine, buffer);
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

TEST(ReadInput, StridesOverTheSlotsOfAFrame)
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

// --- Output
// --------------------------------------------------------------------------------------------------------------

TEST(WriteOutput, RoundsHalfAwayFromZeroAndClipsOnTheSideOfTheSign)
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

TEST(WriteOutput, ClipsToTheWidthNotToTheContainer)
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
        pointAt(*engine, buffer);
        pointAtRows(*engine);
        EXPECT_EQ(engine->WriteOutput(64, 3), 1u);
        EXPECT_EQ(buffer, zeros);
    }
}

TEST(WriteOutput, WritesNothingForZeroFramesAndSaysSo)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(1, 3, 16);
    const auto before = buffer;
    pointAt(*engine, buffer);
    pointAtRows(*engine);
    engine->outputBlock[0][0] = 1 << 29;
    EXPECT_EQ(engine->WriteOutput(0, 3), 1u);
    EXPECT_EQ(buffer, before);
}

TEST(WriteOutput, RefusesUnsupportedWidths)
{
    for (const int bits : {0, 1, 8, 33, 64}) {
        const auto engine = engineAt(48000, bits);
        GuardedBuffer buffer(64, 3, 16);
        const auto before = buffer;
        pointAt(*engine, buffer);
        pointAtRows(*engine);
        engine->outputBlock[0][0] = 1 << 29;
        EXPECT_EQ(engine->WriteOutput(64, 3), 0u);
        EXPECT_EQ(buffer, before);
    }
}

TEST(WriteOutput, LaterChannelWinsASharedSlot)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(1, 1, 16);
    engine->SetChannelPtrs(buffer.data(), buffer.data(), buffer.data(), buffer.data());
    pointAtRows(*engine);
    engine->outputBlock[0][0] = 1 << 16;
    engine->outputBlock[1][0] = 2 << 16;
    engine->outputBlock[2][0] = 3 << 16;
    engine->WriteOutput(1, 1);
    EXPECT_EQ(buffer.get(0, 0), 6);
}

TEST(WriteOutput, LeavesOtherSlotsAlone)
{
    const auto engine = engineAt(48000, 24);
    GuardedBuffer buffer(64, 5, 24);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t slot = 0; slot < 5; ++slot) buffer.set(i, slot, 77);
    pointAt(*engine, buffer);
    pointAtRows(*engine);
    EXPECT_EQ(engine->WriteOutput(64, 5), 1u);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t slot = 0; slot < 5; ++slot) EXPECT_EQ(buffer.get(i, slot), slot < 3 ? 0 : 77);
}

// --- Remapping
// -----------------------------------------------------------------------------------------------------------

namespace
{

constexpr int kUnity = 1 << 28;

/// An engine whose rows hold host samples, with a matrix, and a buffer of four slots.
class Remapped
{
public:
    Remapped(std::int32_t bits, const int (&coeff)[3][4])
        : engine_(engineAt(48000, bits)), buffer_(64, 4, static_cast<std::uint32_t>(bits))
    {
        pointAt(*engine_, buffer_);
        pointAtRows(*engine_);
        int copy[3][4];
        std::copy(&coeff[0][0], &coeff[0][0] + 12, &copy[0][0]);
        EXPECT_EQ(engine_->SetRemapCoeff(copy), 0u);
        for (std::size_t i = 0; i < 64; ++i)
            for (std::size_t slot = 0; slot < 4; ++slot) buffer_.set(i, slot, 99);
    }

    /// The four slots of frame 0 for one sample per row.
    std::array<std::int32_t, 4> mix(std::int32_t frontLeft, std::int32_t frontRight, std::int32_t centre)
    {
        engine_->outputBlock[0][0] = frontLeft;
        engine_->outputBlock[1][0] = frontRight;
        engine_->outputBlock[2][0] = centre;
        EXPECT_EQ(engine_->RemapOutput(1, 4), 1u);
        EXPECT_TRUE(buffer_.guardsIntact());
        return {buffer_.get(0, 0), buffer_.get(0, 1), buffer_.get(0, 2), buffer_.get(0, 3)};
    }

    ZRKTarn& engine() { return *engine_; }
    GuardedBuffer& buffer() { return buffer_; }

private:
    std::unique_ptr<ZRKTarn> engine_;
    GuardedBuffer buffer_;
};

using Slots = std::array<std::int32_t, 4>;

} // namespace

TEST(Remap, IdentityWritesOneToOneAndSilencesTheFourthPosition)
{
    for (const int bits : {16, 24, 32}) {
        Remapped remapped(bits, {{kUnity, 0, 0, 0}, {0, kUnity, 0, 0}, {0, 0, kUnity, 0}});
        EXPECT_EQ(remapped.mix(1000, -2000, 3000), (Slots{1000, -2000, 3000, 0}));
    }
}

TEST(Remap, ZeroMatrixSilencesAllPositions)
{
    for (const int bits : {16, 24, 32}) {
        Remapped remapped(bits, {});
        EXPECT_EQ(remapped.mix(1000, -2000, 3000), (Slots{0, 0, 0, 0}));
    }
}

TEST(Remap, RoundsTowardsMinusInfinity)
{
    for (const int bits : {16, 24, 32}) {
        Remapped remapped(bits, {{kUnity / 2, 0, 0, 0}, {0, kUnity / 2, 0, 0}, {0, 0, 0, 0}});
        EXPECT_EQ(remapped.mix(-3, 3, 0), (Slots{-2, 1, 0, 0}));
    }
}

TEST(WriteOutput, TakesRowsOfTheCallersSampleBySample)
{
    // A row that lies in the host buffer itself: every other sample is one that has been written before it is read.
    const auto engine = engineAt(48000, 32);
    std::int32_t buffer[16];
    std::int32_t expected[16];
    for (int i = 0; i < 16; ++i) buffer[i] = expected[i] = 1000 * (i + 1);
    std::int32_t spare[24] = {};
    pointAtRows(*engine);
    engine->outputPtr[0] = buffer;
    auto* const slot = reinterpret_cast<std::uint8_t*>(buffer);
    auto* const elsewhere = reinterpret_cast<std::uint8_t*>(spare);
    engine->SetChannelPtrs(slot, elsewhere, elsewhere, elsewhere);
    EXPECT_EQ(engine->WriteOutput(8, 2), 1u);
    for (int i = 0; i < 8; ++i) expected[2 * i] = 2 * expected[i]; // 32 bits: the scale is 2
    for (int i = 0; i < 16; ++i) EXPECT_EQ(buffer[i], expected[i]) << i;
}

TEST(Remap, WrapsInsteadOfClipping)
{
    Remapped remapped(16, {{kUnity, 0, 0, 0}, {kUnity, 0, 0, 0}, {0, 0, 0, 0}});
    EXPECT_EQ(remapped.mix(30000, 30000, 0)[0], -5536);
}

TEST(Remap, NegativeUnityInvertsThePolarity)
{
    Remapped remapped(16, {{-kUnity, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}});
    EXPECT_EQ(remapped.mix(-32768, 0, 0)[0], -32768);
    EXPECT_EQ(remapped.mix(-32767, 0, 0)[0], 32767);
}

TEST(Remap, MixesThreeTermsExactlyInEveryWidth)
{
    for (const int bits : {16, 24, 32}) {
        Remapped remapped(bits, {{kUnity / 4, 0, 0, 0}, {-kUnity / 8, 0, 0, 0}, {kUnity / 2 + 1, 0, 0, 0}});
        EXPECT_EQ(remapped.mix(1001, -77, 30001)[0], 250 + 9 + 15001);
    }
}

TEST(Remap, SumsBeyond63BitsKeepTheirLowBytes)
{
    Remapped remapped(32, {{INT32_MIN, 0, 0, 0}, {INT32_MIN, 0, 0, 0}, {INT32_MIN, 0, 0, 0}});
    // 3 * 2^62 >> 28 = 3 * 2^34, of which the low 32 bits are zero.
    EXPECT_EQ(remapped.mix(INT32_MIN, INT32_MIN, INT32_MIN)[0], 0);
    // (2^62 + 2^62 - 2^31) >> 28 = 2^35 - 8.
    EXPECT_EQ(remapped.mix(INT32_MIN, INT32_MIN, 1)[0], -8);
}

TEST(Remap, ConvertsAndWritesNothingForZeroFrames)
{
    Remapped remapped(16, {{kUnity, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}});
    const auto before = remapped.buffer();
    EXPECT_EQ(remapped.engine().RemapOutput(0, 4), 1u);

    // With something in the overlap, the block has output that a conversion would change.
    std::fill(std::begin(remapped.engine().overlapNow[0]), std::end(remapped.engine().overlapNow[0]), 1e9f);
    EXPECT_EQ(remapped.engine().ProcessCine3InterLeaveRemap(0, 4), 0u);
    for (const std::int32_t value : remapped.engine().outputBlock[0]) EXPECT_EQ(value, 1000000000);
    EXPECT_EQ(remapped.buffer(), before);
}

TEST(Remap, ConvertsTheFramesOfTheBlockWhateverTheContainer)
{
    const auto engine = engineAt(48000, 8);
    engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
    std::fill(std::begin(engine->overlapNow[2]), std::end(engine->overlapNow[2]), 1e9f);
    EXPECT_EQ(engine->ProcessCine3InterLeaveRemap(10, 8), 0u);
    for (int i = 0; i < 64; ++i) EXPECT_EQ(engine->outputBlock[2][i], i < 10 ? 119 : 1000000000);
}

TEST(Remap, RefusesUnsupportedWidths)
{
    for (const int bits : {0, 8, 40}) {
        const auto engine = engineAt(48000, bits);
        engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
        pointAtRows(*engine);
        EXPECT_EQ(engine->RemapOutput(64, 8), 0u);
    }
}

TEST(Remap, CompilesAColumnToItsNonZeroTermsInRowOrder)
{
    ZRKTarn engine;
    int coeff[3][4] = {{11, 0, 0, 5}, {0, 0, -7, 6}, {13, 0, 0, 7}};
    EXPECT_EQ(engine.SetRemapCoeff(coeff), 0u);
    EXPECT_EQ(engine.remapTermCount[0], 2u);
    EXPECT_EQ(engine.remapTermGain[0][0], 11);
    EXPECT_EQ(engine.remapTermSource[0][0], 0u);
    EXPECT_EQ(engine.remapTermGain[0][1], 13);
    EXPECT_EQ(engine.remapTermSource[0][1], 2u);
    EXPECT_EQ(engine.remapTermCount[1], 0u);
    EXPECT_EQ(engine.remapTermCount[2], 1u);
    EXPECT_EQ(engine.remapTermSource[2][0], 1u);
    EXPECT_EQ(engine.remapTermCount[3], 3u);
    EXPECT_TRUE(std::equal(&coeff[0][0], &coeff[0][0] + 12, &engine.remapCoeff[0][0]));
}

TEST(Remap, TermsPastTheCountKeepTheirOldValues)
{
    ZRKTarn engine;
    int full[3][4] = {{1, 0, 0, 0}, {2, 0, 0, 0}, {3, 0, 0, 0}};
    int single[3][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}, {9, 0, 0, 0}};
    engine.SetRemapCoeff(full);
    engine.SetRemapCoeff(single);
    EXPECT_EQ(engine.remapTermCount[0], 1u);
    EXPECT_EQ(engine.remapTermGain[0][0], 9);
    EXPECT_EQ(engine.remapTermGain[0][1], 2);
    EXPECT_EQ(engine.remapTermSource[0][2], 2u);
}

TEST(Remap, TermCountsThatNoMatrixGivesStoreNothing)
{
    Remapped remapped(16, {{kUnity, 0, 0, 0}, {0, kUnity, 0, 0}, {0, 0, kUnity, 0}});
    remapped.engine().remapTermCount[1] = 4;
    std::fill_n(remapped.engine().remapTermSource[1], 3, 0xffffffffu); // nor are sources looked up
    EXPECT_EQ(remapped.mix(1000, -2000, 3000), (Slots{1000, 99, 3000, 0}));
}

TEST(Remap, FourByteContainersMixTheMatrixNotItsTerms)
{
    Remapped remapped(32, {{kUnity, 0, 0, 0}, {0, kUnity, 0, 0}, {0, 0, kUnity, 0}});
    std::fill(std::begin(remapped.engine().remapTermCount), std::end(remapped.engine().remapTermCount), 0u);
    EXPECT_EQ(remapped.mix(1000, -2000, 3000), (Slots{1000, -2000, 3000, 0}));
}

TEST(Remap, UnconfiguredEngineIsSilent)
{
    const auto engine = engineAt(48000, 16);
    GuardedBuffer buffer(64, 8, 16);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t slot = 0; slot < 8; ++slot) buffer.set(i, slot, 5000);
    pointAt(*engine, buffer);
    EXPECT_EQ(engine->ProcessCine3InterLeaveRemap(64, 8), 0u);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t slot = 0; slot < 8; ++slot) EXPECT_EQ(buffer.get(i, slot), slot < 4 ? 0 : 5000);
}
