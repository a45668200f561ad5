#include "cinema/group_peaks.h"

#include "cinema/band_layouts.h"
#include "cinema/largest.h"
#include "cinema/smoothing.h"
#include "lanes/lanes.h"

#include <bit>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr float kRoot2 = 1.4142135f;

void copyRow(const float (&from)[16], float (&to)[16]) noexcept
{
    store(to, load<16>(from));
}

/// The lower words of the keys of as many bands as a vector holds, from band 0 on.
Ints<kVectorFloats> firstLowWords() noexcept
{
    std::int32_t words[kVectorFloats];
    for (int b = 0; b < kVectorFloats; ++b) words[b] = kLastIndex - b;
    return load<kVectorFloats>(words);
}

/// |L| + |R| of every band and its index as one key; NaN counts as nothing.
void rankBands(const float (&left)[64], const float (&right)[64], RankKey (&keys)[64]) noexcept
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

/// The key of the band with the largest key among count bands from first on; of the first with none if there are none.
[[gnu::always_inline]] inline RankKey largestKey(const RankKey* keys, std::int32_t first, std::int32_t count) noexcept
{
    RankKey largest = rankKey(0, first);
    for (std::int32_t b = first; b < first + count; ++b) largest = keys[b] > largest ? keys[b] : largest;
    return largest;
}

template <int... kGroup, typename Layout>
void findDominantBands(Layout /*layout*/, const RankKey (&keys)[64], RankKey (&dominant)[16],
                       std::integer_sequence<int, kGroup...> /*groups*/) noexcept
{
    ((dominant[kGroup] = largestKey(keys, Layout::firstOf(kGroup), Layout::kCount[kGroup])), ...);
}

template <bool kGradual>
void smoothPower(const float (&pair)[2], const float (&peak)[16], float (&power)[16]) noexcept
{
    store(power, smoothed<kGradual>(pair, load<16>(peak), load<16>(power)));
}

template <bool kGradual>
void smoothAllPowers(ZRKTarn& engine) noexcept
{
    smoothPower<kGradual>(engine.power, engine.peakL, engine.powL);
    smoothPower<kGradual>(engine.power, engine.peakR, engine.powR);
    smoothPower<kGradual>(engine.power, engine.peakSum, engine.powSum);
    smoothPower<kGradual>(engine.power, engine.peakDiff, engine.powDiff);
}

} // namespace

void startMeasures(ZRKTarn& engine) noexcept
{
    copyRow(engine.thresBands, engine.thres);
    copyRow(engine.midThresBands, engine.midThres);
    copyRow(engine.slowThresBands, engine.slowThres);
    copyRow(engine.peakL, engine.prevPeakL);
    copyRow(engine.peakR, engine.prevPeakR);
    copyRow(engine.peakSum, engine.prevPeakSum);
    copyRow(engine.peakDiff, engine.prevPeakDiff);
}

void findGroupPeaks(ZRKTarn& engine) noexcept
{
    RankKey keys[64];
    rankBands(engine.subband[0], engine.subband[1], keys);
    RankKey dominant[16];
    const bool known = dispatchLayout(engine.bandCount, [&](auto layout) {
        findDominantBands(layout, keys, dominant, std::make_integer_sequence<int, 16>{});
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

    float l[16];
    float r[16];
    for (int g = 0; g < 16; ++g) {
        const Largest band = ranked(dominant[g]);
        engine.peakTotal[g] = band.value;
        engine.peakBand[g] = band.index;
        // The index of an empty group behind the last band is 64; a group without a peak takes nothing from here.
        const int b = band.index < 64 ? band.index : 63;
        l[g] = engine.subband[0][b];
        r[g] = engine.subband[1][b];
    }

    const Floats<16> left = load<16>(l);
    const Floats<16> right = load<16>(r);
    const Ints<16> found = broadcast<16>(0.0f) < load<16>(engine.peakTotal);
    const auto take = [&](const Floats<16>& measure, float(&peak)[16]) {
        store(peak, select(found, measure, load<16>(peak)));
    };
    take(abs(left), engine.peakL);
    take(abs(right), engine.peakR);
    take(abs(left + right) / broadcast<16>(kRoot2), engine.peakSum);
    take(abs(left - right) / broadcast<16>(kRoot2), engine.peakDiff);
}

void findDominantGroup(ZRKTarn& engine) noexcept
{
    const Largest left = largestOf(load<16>(engine.peakL));
    const Largest right = largestOf(load<16>(engine.peakR));
    engine.dominantGroup = left.value > right.value ? left.index : right.index;
}

void smoothGroupPowers(ZRKTarn& engine) noexcept
{
    const Ints<16> gradual = nearUnderflow(load<16>(engine.powL)) | nearUnderflow(load<16>(engine.powR)) |
                             nearUnderflow(load<16>(engine.powSum)) | nearUnderflow(load<16>(engine.powDiff));
    if (any(gradual)) {
        smoothAllPowers<true>(engine);
    } else {
        smoothAllPowers<false>(engine);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
