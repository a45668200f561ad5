// The dominant band of every group.
// SPDX-License-Identifier: MIT
#include "cinema/dominant_bands.h"

#include "cinema/band_layouts.h"
#include "lanes/lanes.h"

#include <bit>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

// A search compares value and index as one number, without a branch that depends on the signal. The high word holds
// the bits of the value: those of non-negative floats have the same order as the values. The low word decides between
// equal values: the lowest index gives the largest key. Keys are compared as doubles, which have the same order too;
// the high word is at most that of a single infinity, so none of them is NaN.

/// The low word of the key of index 0.
constexpr std::int32_t kLastIndex = 255;

/// The key of value 0.
double zeroKey(std::int32_t index) noexcept
{
    return __builtin_bit_cast(double, static_cast<std::int64_t>(kLastIndex - index));
}

/// The low words of the keys of the first kVectorFloats bands.
Ints<kVectorFloats> firstLowWords() noexcept
{
    std::int32_t words[kVectorFloats];
    for (int b = 0; b < kVectorFloats; ++b) words[b] = kLastIndex - b;
    return load<kVectorFloats>(words);
}

/// The key of every band: |L| + |R| and the index. NaN counts as zero.
void computeKeys(const float (&left)[64], const float (&right)[64], double (&keys)[64]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    constexpr bool kLowFirst = std::endian::native == std::endian::little;
    auto* const words = reinterpret_cast<std::int32_t*>(keys);
    Ints<kWidth> low = firstLowWords();
    for (int b = 0; b < 64; b += kWidth) {
        const Floats<kWidth> total = abs(load<kWidth>(left + b)) + abs(load<kWidth>(right + b));
        const Ints<kWidth> high = bitsAs<std::int32_t>(larger(total, broadcast<kWidth>(0.0f)));
        store(words + 2 * b, kLowFirst ? lowInterleaved(low, high) : lowInterleaved(high, low));
        store(words + 2 * b + kWidth, kLowFirst ? highInterleaved(low, high) : highInterleaved(high, low));
        low = low - broadcast<kWidth>(std::int32_t{kWidth});
    }
}

/// The larger of a lane and the lanes that are kCount / 2, kCount / 4, ... above it, for lanes 0 and 1.
template <int kCount>
[[gnu::always_inline]] inline Doubles<2> foldToPair(const Doubles<kCount>& keys) noexcept
{
    if constexpr (kCount == 2) {
        return keys;
    } else {
        return foldToPair(larger(lowHalf(keys), highHalf(keys)));
    }
}

/// The largest of kCount keys, in one of two lanes.
template <int kCount>
[[gnu::always_inline]] inline Doubles<2> largestInPair(const double* keys) noexcept
{
    constexpr int kMost = kVectorFloats / 2;
    constexpr int kWidth = kCount < kMost ? int{std::bit_floor(unsigned{kCount})} : kMost;
    if constexpr (kCount == 1) {
        return broadcast<2>(keys[0]);
    } else {
        Doubles<kWidth> largest = load<kWidth>(keys);
        for (int n = kWidth; n < kCount; n += kWidth)
            largest = larger(largest, load<kWidth>(keys + (n < kCount - kWidth ? n : kCount - kWidth)));
        return foldToPair(largest);
    }
}

/// The largest keys of kGroups groups from kFirst on.
template <typename Layout, int kFirst, int kGroups>
[[gnu::always_inline]] inline Doubles<kGroups> largestKeys(const double (&keys)[64]) noexcept
{
    if constexpr (kGroups == 2) {
        const auto first = largestInPair<Layout::kCount[kFirst]>(keys + Layout::firstOf(kFirst));
        const auto second = largestInPair<Layout::kCount[kFirst + 1]>(keys + Layout::firstOf(kFirst + 1));
        return larger(lowInterleaved(first, second), highInterleaved(first, second));
    } else {
        return joined(largestKeys<Layout, kFirst, kGroups / 2>(keys),
                      largestKeys<Layout, kFirst + kGroups / 2, kGroups / 2>(keys));
    }
}

/// The largest key of count bands from first on; for count 0, that of value 0 and index first.
double largestKey(const double (&keys)[64], std::int32_t first, std::int32_t count) noexcept
{
    double largest = zeroKey(first);
    for (std::int32_t b = first; b < first + count; ++b) largest = keys[b] > largest ? keys[b] : largest;
    return largest;
}

} // namespace

void findDominantBands(ZRKTarn& engine) noexcept
{
    alignas(kVectorBytes) double keys[64];
    computeKeys(engine.subband[0], engine.subband[1], keys);
    alignas(kVectorBytes) double dominant[16];
    const bool known = dispatchLayout(
        engine.bandCount, [&](auto layout) { store(dominant, largestKeys<decltype(layout), 0, 16>(keys)); });
    engine.bandIndex = 64;
    if (!known) {
        std::int32_t& b = engine.bandIndex;
        b = 0;
        for (int g = 0; g < 16; ++g) {
            dominant[g] = largestKey(keys, b, engine.bandCount[g]);
            if (engine.bandCount[g] > 0) b += engine.bandCount[g];
        }
    }
    engine.groupIndex = 16;

    const auto words = deinterleaved(load<32>(reinterpret_cast<const std::int32_t*>(dominant)));
    constexpr bool kLowFirst = std::endian::native == std::endian::little;
    store(engine.peakTotal, bitsAs<float>(kLowFirst ? words.odd : words.even));
    store(engine.peakBand, broadcast<16>(kLastIndex) - (kLowFirst ? words.even : words.odd));
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
