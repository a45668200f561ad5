// The largest of some values and its index.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/lanes.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// The largest value and its lowest index; zero and index 0 if no value is positive.
struct Largest
{
    float value;
    std::int32_t index;
};

// A search compares value and index as one integer, without a branch that depends on the signal. The high word holds
// the bits of the value: those of non-negative floats have the same order as the values. The low word decides between
// equal values: the lowest index gives the largest key.
using RankKey = std::uint64_t;

/// The low word of the key of index 0.
inline constexpr std::int32_t kLastIndex = 255;

inline RankKey rankKey(std::int32_t valueBits, std::int32_t index) noexcept
{
    return RankKey{static_cast<std::uint32_t>(valueBits)} << 32 | static_cast<std::uint32_t>(kLastIndex - index);
}

inline Largest largestFromKey(RankKey key) noexcept
{
    return {__builtin_bit_cast(float, static_cast<std::uint32_t>(key >> 32)),
            kLastIndex - static_cast<std::int32_t>(key)};
}

/// The largest of up to 256 values; ignores NaN.
template <int kCount>
inline Largest largestOf(const Floats<kCount>& values) noexcept
{
    // Every lane keeps the first of its own largest values over the vectors.
    using Vector = Floats<kVectorFloats>;
    Vector largest = broadcast<kVectorFloats>(0.0f);
    Ints<kVectorFloats> part = broadcast<kVectorFloats>(std::int32_t{0});
    for (int p = 0; p < values.kParts; ++p) {
        const Vector candidate{{values.part[p]}};
        const Ints<kVectorFloats> larger = largest < candidate;
        largest = select(larger, candidate, largest);
        part = select(larger, broadcast<kVectorFloats>(std::int32_t{p}), part);
    }

    std::int32_t bits[kVectorFloats];
    std::int32_t partOf[kVectorFloats];
    store(bits, bitsAs<std::int32_t>(largest));
    store(partOf, part);
    RankKey first = rankKey(0, 0);
    for (int lane = 0; lane < kVectorFloats; ++lane) {
        const RankKey key = rankKey(bits[lane], partOf[lane] * kVectorFloats + lane);
        first = key > first ? key : first;
    }
    return largestFromKey(first);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
