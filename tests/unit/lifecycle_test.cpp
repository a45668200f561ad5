// Tests of engine/lifecycle.cpp: construction, copies and simple operations.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"
#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/record_compare.h"
#include "tests/support/signals.h"
#include "tests/unit/expect_rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>

using tests::engineAt;
using tests::expectCounts;
using tests::expectPair;
using tests::GuardedBuffer;

namespace
{

static_assert(std::is_trivially_copyable_v<ZRKTarn> && std::is_standard_layout_v<ZRKTarn>);

GuardedBuffer noise(std::uint64_t seed)
{
    tests::Random random(seed);
    GuardedBuffer buffer(640, 4, 16);
    for (std::size_t i = 0; i < 640; ++i)
        for (std::size_t slot = 0; slot < 4; ++slot) buffer.set(i, slot, tests::sampleOf(0.7 * random.uniform(), 16));
    return buffer;
}

/// Runs one block of a buffer of 4 slots.
void runBlock(ZRKTarn& engine, GuardedBuffer& buffer, std::uint32_t block, bool remap)
{
    std::uint8_t* const position = buffer.data() + block * 64 * 8;
    engine.SetChannelPtrs(position, position + 2, position + 4, position + 6);
    if (remap) {
        engine.ProcessCine3InterLeaveRemap(64, 4);
    } else {
        engine.ProcessCine3InterLeave(64, 4);
    }
}

} // namespace

TEST(Constructor, SetsThe48kHzGroupingAndTheConstantPairs)
{
    const ZRKTarn engine;
    expectCounts(engine.bandCount, ZRKTarn::LOOP_COUNT48);
    expectPair(engine.power, ZRKTarn::POWER);
    expectPair(engine.mid, ZRKTarn::MID);
    expectPair(engine.slower, ZRKTarn::SLOWER);
    expectPair(engine.slow, ZRKTarn::SLOW);
    expectPair(engine.fast, ZRKTarn::FAST);
    expectPair(engine.broadbandPair, {0.1f, 0.9f});
    EXPECT_EQ(engine.mixFractionComplement, 1.0f);
}

TEST(Constructor, OtherMembersAreZero)
{
    alignas(ZRKTarn) unsigned char memory[sizeof(ZRKTarn)];
    std::memset(memory, 0xff, sizeof memory);
    auto* const engine = new (memory) ZRKTarn();

    tests::forEachField(*engine, *engine, [](const char* name, const auto& field, const auto&) {
        for (const char* set : {"bandCount", "power", "mid", "slower", "slow", "fast", "broadbandPair",
                                "mixFractionComplement", "groupIndex", "bandIndex"})
            if (std::string_view(name) == set) return;
        const auto* const bytes = reinterpret_cast<const unsigned char*>(&field);
        EXPECT_TRUE(std::all_of(bytes, bytes + sizeof field, [](unsigned char byte) { return byte == 0; })) << name;
    });
    engine->~ZRKTarn();
}

TEST(Lifecycle, TrivialOperationsReturn0AndChangeNothing)
{
    const auto engine = engineAt(48000, 16);
    const ZRKTarn before = *engine;
    EXPECT_EQ(engine->Open(), 0u);
    EXPECT_EQ(engine->Close(), 0u);
    EXPECT_EQ(engine->Uninitialize(), 0u);
    EXPECT_EQ(engine->Process(nullptr, nullptr, 64), 0u);
    EXPECT_EQ(0, std::memcmp(&before, engine.get(), sizeof before));
}

TEST(Lifecycle, SettersStoreTheirArguments)
{
    ZRKTarn engine;
    std::uint8_t bytes[4];
    EXPECT_EQ(engine.SetChannelPtrs(&bytes[0], &bytes[1], &bytes[2], &bytes[3]), 0u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(engine.channelPtr[i], &bytes[i]);
    EXPECT_EQ(engine.SetReserved(), 0u);
    EXPECT_EQ(engine.reservedA, 1);
    EXPECT_EQ(engine.reservedB, 2);
}

TEST(EngineCopy, ContinuesLikeTheOriginal)
{
    for (const bool remap : {false, true}) {
        const auto expected = tests::engineAt(44100, 16);
        auto original = tests::engineAt(44100, 16);
        int gains[3][4] = {{1 << 28, 0, 1 << 27, 0}, {0, 1 << 28, 0, 1 << 26}, {1 << 27, 1 << 27, 1 << 28, 0}};
        for (auto* engine : {expected.get(), original.get()}) {
            engine->SetRemapCoeff(gains);
            GuardedBuffer buffer = noise(1);
            for (std::uint32_t block = 0; block < 10; ++block) runBlock(*engine, buffer, block, remap);
        }
        const auto copy = std::make_unique<ZRKTarn>(*original);
        const auto assigned = tests::engineAt(96000, 24, 2);
        *assigned = *original;
        original.reset(); // copies do not read it

        for (auto* engine : {copy.get(), assigned.get()}) {
            const auto twin = std::make_unique<ZRKTarn>(*expected);
            GuardedBuffer a = noise(2);
            GuardedBuffer b = a;
            for (std::uint32_t block = 0; block < 10; ++block) {
                runBlock(*engine, a, block, remap);
                runBlock(*twin, b, block, remap);
                ASSERT_TRUE(tests::sameRecord(*engine, a.data(), *twin, b.data())) << "block " << block;
            }
            EXPECT_EQ(a, b);
        }
    }
}

TEST(EngineCopy, WritesTheBlockOfTheOriginalUntilItsOwnFirstBlock)
{
    const auto original = tests::engineAt(48000, 16);
    GuardedBuffer buffer = noise(1);
    runBlock(*original, buffer, 0, false);
    ZRKTarn copy = *original;

    original->outputBlock[0][5] = 1000 << 15;
    copy.outputBlock[0][5] = 2000 << 15;
    copy.WriteOutput(64, 4);
    EXPECT_EQ(buffer.get(5, 0), 1000);

    copy.ProcessCine3(64, 4);
    copy.outputBlock[0][5] = 2000 << 15;
    copy.WriteOutput(64, 4);
    EXPECT_EQ(buffer.get(5, 0), 2000);
}
