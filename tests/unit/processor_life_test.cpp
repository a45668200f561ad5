#include "host/zrk_tarn_processor.h"
#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/record_compare.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

// How processors and engines come into being, are copied and go, and what is left when there is no memory for them.

using tests::GuardedBuffer;
using tests::Random;

namespace
{

/// Memory of engines, the only objects that need more than the usual alignment.
int enginesAlive = 0;
bool memoryIsOut = false;

} // namespace

void* operator new(std::size_t size, std::align_val_t alignment)
{
    void* const memory = memoryIsOut ? nullptr : std::aligned_alloc(static_cast<std::size_t>(alignment), size);
    if (memory == nullptr) throw std::bad_alloc();
    ++enginesAlive;
    return memory;
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    if (memory != nullptr) --enginesAlive;
    std::free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t alignment) noexcept
{
    operator delete(memory, alignment);
}

namespace
{

// A processor owns its engine.
static_assert(!std::is_copy_constructible_v<zrk_tarn_processor_t> && !std::is_copy_assignable_v<zrk_tarn_processor_t>);
static_assert(!std::is_move_constructible_v<zrk_tarn_processor_t> && !std::is_move_assignable_v<zrk_tarn_processor_t>);
static_assert(std::is_nothrow_default_constructible_v<zrk_tarn_processor_t>);
static_assert(std::is_nothrow_destructible_v<zrk_tarn_processor_t>);

// An engine is a plain record.
static_assert(std::is_trivially_copyable_v<ZRKTarn> && std::is_standard_layout_v<ZRKTarn>);

constexpr std::uint32_t kFrames = 640;

/// Memory is out as long as one of these lives.
struct MemoryIsOut
{
    MemoryIsOut() { memoryIsOut = true; }
    ~MemoryIsOut() { memoryIsOut = false; }
};

GuardedBuffer noise(std::uint64_t seed, std::size_t slots = 8, std::uint32_t bits = 16)
{
    Random random(seed);
    GuardedBuffer buffer(kFrames, slots, bits);
    for (std::size_t i = 0; i < kFrames; ++i)
        for (std::size_t slot = 0; slot < slots; ++slot)
            buffer.set(i, slot, tests::sampleOf(0.7 * random.uniform(), std::min(bits, 32u)));
    return buffer;
}

/// Processes a buffer of 8 slots, on the remap path unless roles says otherwise.
void process(zrk_tarn_processor_t& processor, GuardedBuffer& buffer, std::uint32_t rateHz = 48000,
             std::uint32_t bits = 16, audio_channel_assignment_t roles = {{0x2000, 0x4000, 0x200, 0x40000, 0x80000}})
{
    EXPECT_EQ(processor.process(buffer.data(), kFrames, 8, rateHz, bits, &roles), 0u);
    EXPECT_TRUE(buffer.guardsIntact());
}

void configure(zrk_tarn_processor_t& processor)
{
    processor.setup(1, 3, 0.25f);
    unsigned gains[3][4] = {{0x10000000, 0, 1, 2}, {0, 0x10000000, 3, 4}, {5, 6, 0x10000000, 0xf0000000}};
    processor.set_remap_coeff(gains);
}

/// A block of a buffer of 4 slots, on the path that is asked for.
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

TEST(ProcessorLife, WithoutMemoryForAnEngineNothingHappens)
{
    zrk_tarn_processor_t processor;
    configure(processor);
    GuardedBuffer buffer = noise(1);
    const GuardedBuffer before = buffer;
    audio_channel_assignment_t roles{{0x2000, 0x4000, 0x200}};
    for (const std::uint32_t rateHz : {48000u, 0u, 96000u}) {
        const MemoryIsOut now;
        EXPECT_THROW(processor.process(buffer.data(), kFrames, 8, rateHz, 16, &roles), std::bad_alloc);
        EXPECT_THROW(processor.process(nullptr, kFrames, 8, rateHz, 16, nullptr), std::bad_alloc);
    }
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(enginesAlive, 0);

    zrk_tarn_processor_t untouched;
    configure(untouched);
    tests::forEachProcessorField(processor, untouched, [](const char* name, const auto& a, const auto& b) {
        EXPECT_EQ(0, std::memcmp(&a, &b, sizeof a)) << name;
    });
}

TEST(ProcessorLife, AfterwardsItGivesTheBytesOfOneThatAlwaysHadMemory)
{
    zrk_tarn_processor_t processor;
    zrk_tarn_processor_t lucky;
    configure(processor);
    configure(lucky);
    {
        const MemoryIsOut now;
        GuardedBuffer buffer = noise(1, 8, 24);
        EXPECT_THROW(process(processor, buffer, 96000, 24), std::bad_alloc);
    }
    for (std::uint64_t call = 1; call <= 4; ++call) {
        GuardedBuffer a = noise(call);
        GuardedBuffer b = a;
        process(processor, a);
        process(lucky, b);
        EXPECT_EQ(a, b) << "call " << call;
        EXPECT_TRUE(tests::sameRecord(*processor.engine, a.data(), *lucky.engine, b.data()));
    }
}

TEST(ProcessorLife, WithAnEngineItNeedsNoMoreMemory)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer = noise(1);
    process(processor, buffer);
    const MemoryIsOut now;
    for (const std::uint32_t rateHz : {48000u, 192000u, 0u, 44100u})
        EXPECT_NO_THROW(process(processor, buffer, rateHz));
}

TEST(ProcessorLife, MayEndAfterWhateverHappened)
{
    using Event = std::function<void(zrk_tarn_processor_t&)>;
    audio_channel_assignment_t roles{{0x2000, 0x4000, 0x200, 0x40000, 0x80000}};
    GuardedBuffer buffer = noise(1);
    const std::vector<Event> events = {
        [](auto& processor) { configure(processor); },
        [&](auto& processor) { // no memory; an engine that is there already needs none
            const MemoryIsOut now;
            const bool without = processor.engine == nullptr;
            try {
                processor.process(buffer.data(), kFrames, 8, 48000, 16, &roles);
                EXPECT_FALSE(without);
            } catch (const std::bad_alloc&) {
                EXPECT_TRUE(without);
            }
        },
        [&](auto& processor) { processor.process(nullptr, kFrames, 8, 48000, 16, &roles); },
        [&](auto& processor) { processor.process(buffer.data(), kFrames, 8, 48000, 16, nullptr); },
        [&](auto& processor) { processor.process(buffer.data(), kFrames, 0, 48000, 16, nullptr); },
        [&](auto& processor) { processor.process(buffer.data(), kFrames, 9, 48000, 16, &roles); },
        [&](auto& processor) { processor.process(buffer.data(), 0, 8, 48000, 16, &roles); },
        [&](auto& processor) { process(processor, buffer, 22050); },
        [&](auto& processor) { process(processor, buffer, 48000, 8); },
        [&](auto& processor) {
            process(processor, buffer, 48000, 16, {{0x2000, 1, 0x200}});
        },
        [&](auto& processor) {
            process(processor, buffer, 48000, 16, {{0x2000, 0x4000, 0x200}});
        },
        [&](auto& processor) { process(processor, buffer); },
        [&](auto& processor) {
            processor.setup(2, 0, -1.0f);
            process(processor, buffer, 192000);
        },
    };

    ASSERT_EQ(enginesAlive, 0);
    for (std::size_t first = 0; first < events.size(); ++first) {
        for (std::size_t last = first; last <= events.size(); ++last) {
            {
                zrk_tarn_processor_t processor;
                for (std::size_t i = first; i < last; ++i) events[i](processor);
                EXPECT_EQ(enginesAlive, processor.engine == nullptr ? 0 : 1);
            }
            ASSERT_EQ(enginesAlive, 0) << "after events " << first << " to " << last;
        }
    }
    EXPECT_TRUE(buffer.guardsIntact());
}

TEST(EngineCopy, GoesOnAsItsOriginalWouldHave)
{
    for (const bool remap : {false, true}) {
        const auto expected = tests::engineAt(44100, 16);
        auto original = tests::engineAt(44100, 16);
        int gains[3][4] = {{1 << 28, 0, 1 << 27, 0}, {0, 1 << 28, 0, 1 << 26}, {1 << 27, 1 << 27, 1 << 28, 0}};
        for (auto* engine : {expected.get(), original.get()}) {
            engine->SetRemapCoeff(gains);
            GuardedBuffer buffer = noise(1, 4);
            for (std::uint32_t block = 0; block < 10; ++block) runBlock(*engine, buffer, block, remap);
        }
        const auto copy = std::make_unique<ZRKTarn>(*original);
        const auto assigned = tests::engineAt(96000, 24, 2);
        *assigned = *original;
        original.reset(); // nothing of it is read any more

        for (auto* engine : {copy.get(), assigned.get()}) {
            const auto twin = std::make_unique<ZRKTarn>(*expected);
            GuardedBuffer a = noise(2, 4);
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

TEST(EngineCopy, WritesTheBlockOfItsOriginalUntilItHasOneOfItsOwn)
{
    const auto original = tests::engineAt(48000, 16);
    GuardedBuffer buffer = noise(1, 4);
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
