#pragma once

#include "lanes/lanes.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// The largest of some values and where it stands first; zero and index 0 if none is positive.
struct Largest
{
    float value;
    std::int32_t index;
};

// Searches compare value and index as one integer, without a branch that a signal could make hard to predict: the bits
// of a non-negative float are ordered as its values are, and below them the lower index counts for more.
using RankKey = std::uint64_t;

/// The lower word of a key.
inline constexpr std::int32_t kLastIndex = 255;

inline RankKey rankKey(std::int32_t valueBits, std::int32_t index) noexcept
{
    return RankKey{static_cast<std::uint32_t>(valueBits)} << 32 | static_cast<std::uint32_t>(kLastIndex - index);
}

inline Largest ranked(RankKey key) noexcept
{
    return {__builtin_bit_cast(float, static_cast<std::uint32_t>(key >> 32)),
            kLastIndex - static_cast<std::int32_t>(key)};
}

/// The largest of up to 256 values; NaN counts as nothing.
template <int kCount>
inline Largest largestOf(const Floats<kCount>& values) noexcept
{
    // Every lane of a vector goes through the vectors from first to last and keeps the first of its own largest ones.
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
    return ranked(first);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
