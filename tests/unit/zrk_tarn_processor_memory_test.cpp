// Tests of host/zrk_tarn_processor.cpp: ownership of the engine, and out of memory.
// SPDX-License-Identifier: MIT
#include "host/zrk_tarn_processor.h"
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

using tests::GuardedBuffer;
using tests::Random;

namespace
{

/// Allocations with alignment, which only engines need.
int engineCount = 0;
bool isOutOfMemory = false;

} // namespace

void* operator new(std::size_t size, std::align_val_t alignment)
{
    void* const memory = isOutOfMemory ? nullptr : std::aligned_alloc(static_cast<std::size_t>(alignment), size);
    if (memory == nullptr) throw std::bad_alloc();
    ++engineCount;
    return memory;
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    if (memory != nullptr) --engineCount;
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

constexpr std::uint32_t kFrames = 640;

/// Lets allocations of engines fail in a scope.
struct OutOfMemory
{
    OutOfMemory() { isOutOfMemory = true; }
    ~OutOfMemory() { isOutOfMemory = false; }
};

GuardedBuffer noise(std::uint64_t seed, std::uint32_t bits = 16)
{
    Random random(seed);
    GuardedBuffer buffer(kFrames, 8, bits);
    for (std::size_t i = 0; i < kFrames; ++i)
        for (std::size_t slot = 0; slot < 8; ++slot)
            buffer.set(i, slot, tests::sampleOf(0.7 * random.uniform(), std::min(bits, 32u)));
    return buffer;
}

/// Processes a buffer of 8 slots, by default on the remap path.
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

} // namespace

TEST(ProcessorMemory, OutOfMemoryChangesNothing)
{
    zrk_tarn_processor_t processor;
    configure(processor);
    GuardedBuffer buffer = noise(1);
    const GuardedBuffer before = buffer;
    audio_channel_assignment_t roles{{0x2000, 0x4000, 0x200}};
    for (const std::uint32_t rateHz : {48000u, 0u, 96000u}) {
        const OutOfMemory scope;
        EXPECT_THROW(processor.process(buffer.data(), kFrames, 8, rateHz, 16, &roles), std::bad_alloc);
        EXPECT_THROW(processor.process(nullptr, kFrames, 8, rateHz, 16, nullptr), std::bad_alloc);
    }
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(engineCount, 0);

    zrk_tarn_processor_t untouched;
    configure(untouched);
    tests::forEachProcessorField(processor, untouched, [](const char* name, const auto& a, const auto& b) {
        EXPECT_EQ(0, std::memcmp(&a, &b, sizeof a)) << name;
    });
}

TEST(ProcessorMemory, AfterOutOfMemoryOutputIsTheSame)
{
    zrk_tarn_processor_t processor;
    zrk_tarn_processor_t expected;
    configure(processor);
    configure(expected);
    {
        const OutOfMemory scope;
        GuardedBuffer buffer = noise(1, 24);
        EXPECT_THROW(process(processor, buffer, 96000, 24), std::bad_alloc);
    }
    for (std::uint64_t call = 1; call <= 4; ++call) {
        GuardedBuffer a = noise(call);
        GuardedBuffer b = a;
        process(processor, a);
        process(expected, b);
        EXPECT_EQ(a, b) << "call " << call;
        EXPECT_TRUE(tests::sameRecord(*processor.engine, a.data(), *expected.engine, b.data()));
    }
}

TEST(ProcessorMemory, AllocatesNothingOnceTheEngineExists)
{
    zrk_tarn_processor_t processor;
    GuardedBuffer buffer = noise(1);
    process(processor, buffer);
    const OutOfMemory scope;
    for (const std::uint32_t rateHz : {48000u, 192000u, 0u, 44100u})
        EXPECT_NO_THROW(process(processor, buffer, rateHz));
}

TEST(ProcessorMemory, CanBeDestroyedAfterAnySequenceOfCalls)
{
    using Event = std::function<void(zrk_tarn_processor_t&)>;
    audio_channel_assignment_t roles{{0x2000, 0x4000, 0x200, 0x40000, 0x80000}};
    GuardedBuffer buffer = noise(1);
    const std::vector<Event> events = {
        [](auto& processor) { configure(processor); },
        [&](auto& processor) { // out of memory; fails only if there is no engine yet
            const OutOfMemory scope;
            const bool needsMemory = processor.engine == nullptr;
            try {
                processor.process(buffer.data(), kFrames, 8, 48000, 16, &roles);
                EXPECT_FALSE(needsMemory);
            } catch (const std::bad_alloc&) {
                EXPECT_TRUE(needsMemory);
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

    ASSERT_EQ(engineCount, 0);
    for (std::size_t first = 0; first < events.size(); ++first) {
        for (std::size_t last = first; last <= events.size(); ++last) {
            {
                zrk_tarn_processor_t processor;
                for (std::size_t i = first; i < last; ++i) events[i](processor);
                EXPECT_EQ(engineCount, processor.engine == nullptr ? 0 : 1);
            }
            ASSERT_EQ(engineCount, 0) << "after events " << first << " to " << last;
        }
    }
    EXPECT_TRUE(buffer.guardsIntact());
}
