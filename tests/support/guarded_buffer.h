// A host buffer that detects writes beyond its ends.
// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tests
{

/// A host buffer of interleaved samples between guard bytes, at an odd address.
class GuardedBuffer
{
public:
    GuardedBuffer(std::size_t frames, std::size_t slots, std::uint32_t bitsPerSample)
        : slotCount(slots),
          sampleBytes((bitsPerSample + 7) / 8),
          storage(2 * kGuard + frames * slots * sampleBytes, kGuardByte)
    {
        std::fill(storage.begin() + kGuard, storage.end() - kGuard, std::uint8_t{0});
    }

    std::uint8_t* data() { return storage.data() + kGuard; }
    const std::uint8_t* data() const { return storage.data() + kGuard; }
    std::size_t size() const { return storage.size() - 2 * kGuard; }

    /// Writes the low bytes of a sample, least significant first.
    void set(std::size_t frame, std::size_t slot, std::int64_t sample)
    {
        std::uint8_t* const position = data() + (frame * slotCount + slot) * sampleBytes;
        for (std::size_t j = 0; j < sampleBytes; ++j)
            position[j] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(sample) >> (8 * j));
    }

    /// The sign-extended sample.
    std::int32_t get(std::size_t frame, std::size_t slot) const
    {
        const std::uint8_t* const position = data() + (frame * slotCount + slot) * sampleBytes;
        std::uint32_t bits = 0;
        for (std::size_t j = 0; j < sampleBytes; ++j) bits |= std::uint32_t{position[j]} << (8 * j);
        const auto unused = static_cast<int>(32 - 8 * sampleBytes);
        return static_cast<std::int32_t>(bits << unused) >> unused;
    }

    testing::AssertionResult guardsIntact() const
    {
        const auto broken = [](std::uint8_t byte) { return byte != kGuardByte; };
        if (std::any_of(storage.begin(), storage.begin() + kGuard, broken))
            return testing::AssertionFailure() << "written before the buffer";
        if (std::any_of(storage.end() - kGuard, storage.end(), broken))
            return testing::AssertionFailure() << "written after the buffer";
        return testing::AssertionSuccess();
    }

    friend bool operator==(const GuardedBuffer&, const GuardedBuffer&) = default;

private:
    static constexpr std::ptrdiff_t kGuard = 129;
    static constexpr std::uint8_t kGuardByte = 0xa5;

    std::size_t slotCount;
    std::size_t sampleBytes;
    std::vector<std::uint8_t> storage;
};

} // namespace tests
