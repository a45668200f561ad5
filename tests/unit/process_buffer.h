// Calls zrk_tarn_processor_t::process with test buffers.
// SPDX-License-Identifier: MIT
#pragma once

#include "host/zrk_tarn_processor.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/signals.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>

namespace tests
{

inline GuardedBuffer noiseBuffer(std::size_t frames, std::size_t slots, std::uint32_t bits, std::uint64_t seed = 1)
{
    Random random(seed);
    GuardedBuffer buffer(frames, slots, bits);
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t slot = 0; slot < slots; ++slot)
            buffer.set(i, slot, sampleOf(0.5 * random.uniform(), std::min(bits, 32u)));
    return buffer;
}

inline audio_channel_assignment_t codes(std::initializer_list<std::uint32_t> list)
{
    audio_channel_assignment_t assignment{};
    std::copy(list.begin(), list.end(), assignment.code);
    return assignment;
}

/// Processes all frames of a buffer.
inline void process(zrk_tarn_processor_t& processor, GuardedBuffer& buffer,
                    std::initializer_list<std::uint32_t> slotCodes, std::uint32_t rate = 48000, std::uint32_t bits = 16)
{
    auto assignment = codes(slotCodes);
    const auto slots = static_cast<std::uint32_t>(slotCodes.size());
    const auto frames = static_cast<std::uint32_t>(buffer.size() / (slots * ((bits + 7) / 8)));
    EXPECT_EQ(processor.process(buffer.data(), frames, slots, rate, bits, &assignment), 0u);
    EXPECT_TRUE(buffer.guardsIntact());
}

} // namespace tests
