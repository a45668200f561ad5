// The dominant band of every group.
// SPDX-License-Identifier: MIT
#include "cinema/dominant_bands.h"

#include "cinema/band_layouts.h"
#include "cinema/largest.h"
#include "lanes/lanes.h"

#include <bit>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// The low words of the keys of the first kVectorFloats bands.
Ints<kVectorFloats> firstLowWords() noexcept
{
    std::int32_t words[kVectorFloats];
    for (int b = 0; b < kVectorFloats; ++b) words[b] = kLastIndex - b;
    return load<kVectorFloats>(words);
}

/// The key of every band: |L| + |R| and the index. NaN counts as zero.
void computeKeys(const float (&left)[64], const float (&right)[64], RankKey (&keys)[64]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    constexpr bool kLowFirst = std::endian::native == std::endian::little;
    auto* const words = reinterpret_cast<std::int32_t*>(keys);
    Ints<kWidth> low = firstLowWords();
    for (int b = 0; b < 64; b += kWidth) {
        const Floats<kWidth> total = abs(load<kWidth>(left + b)) + abs(load<kWidth>(right + b));
        const Floats<kWidth> zero = broadcast<kWidth>(0.0f);
        const Ints<kWidth> high = bitsAs<std::int32_t>(select(zero < total, total, zero));
        store(words + 2 * b, kLowFirst ? lowInterleaved(low, high) : lowInterleaved(high, low));
        store(words + 2 * b + kWidth, kLowFirst ? highInterleaved(low, high) : highInterleaved(high, low));
        low = low - broadcast<kWidth>(std::int32_t{kWidth});
    }
}

/// The largest key of count bands from first on; for count 0, that of value 0 and index first.
[[gnu::always_inline]] inline RankKey largestKey(const RankKey* keys, std::int32_t first, std::int32_t count) noexcept
{
    RankKey largest = rankKey(0, first);
    for (std::int32_t b = first; b < first + count; ++b) largest = keys[b] > largest ? keys[b] : largest;
    return largest;
}

template <int... kGroup, typename Layout>
void findLargestKeys(Layout /*layout*/, const RankKey (&keys)[64], RankKey (&dominant)[16],
                     std::integer_sequence<int, kGroup...> /*groups*/) noexcept
{
    ((dominant[kGroup] = largestKey(keys, Layout::firstOf(kGroup), Layout::kCount[kGroup])), ...);
}

} // namespace

void findDominantBands(ZRKTarn& engine) noexcept
{
    RankKey keys[64];
    computeKeys(engine.subband[0], engine.subband[1], keys);
    RankKey dominant[16];
    const bool known = dispatchLayout(engine.bandCount, [&](auto layout) {
        findLargestKeys(layout, keys, dominant, std::make_integer_sequence<int, 16>{});
    });
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

    for (int g = 0; g < 16; ++g) {
        const Largest band = largestFromKey(dominant[g]);
        engine.peakTotal[g] = band.value;
        engine.peakBand[g] = band.index;
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
