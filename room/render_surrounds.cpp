// The signal path of the surround channels of a block: covariances, weights, difference, synthesis, chains.
// SPDX-License-Identifier: MIT
#include "room/render_surrounds.h"

#include "cinema/band_layouts.h"
#include "cinema/synthesis.h"
#include "filterbank/transform.h"
#include "filterbank/vector_pair_sums.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// Values below it become 0. They are inaudible and would decay to subnormal numbers, which are slow.
constexpr float kTrace = 0x1p-60f;

/// Full scale of the covariances: squares of the engine scale would overflow.
constexpr float kCovarianceScale = 0x1p-31f;

/// How much diffuse power counts as part of the dominant source. More leaks less of a centred source; less leaks less
/// of a source between centre and side.
constexpr float kDiffuseShare = 0.625f;

template <int kCount>
Floats<kCount> withoutTraces(const Floats<kCount>& values) noexcept
{
    const Floats<kCount> zero = broadcast<kCount>(0.0f);
    return select(abs(values) < broadcast<kCount>(kTrace), zero, values);
}

template <int kCount>
float sumOf(const float* values) noexcept
{
    float partial[4]{};
    for (int n = 0; n < kCount; ++n) partial[n % 4] += values[n];
    return (partial[0] + partial[1]) + (partial[2] + partial[3]);
}

/// The sums over the bands of every group.
template <typename Layout, int... kGroup>
Floats<16> groupSums(const float (&bands)[64], std::integer_sequence<int, kGroup...> /*groups*/) noexcept
{
    const float sums[16] = {sumOf<Layout::kCount[kGroup]>(bands + Layout::firstOf(kGroup))...};
    return load<16>(sums);
}

template <typename Layout>
void smoothCovariance(const Floats<64>& a, const Floats<64>& b, const float (&smoothing)[2],
                      float (&covariance)[16]) noexcept
{
    float products[64];
    store(products, a * b);
    const Floats<16> sums = groupSums<Layout>(products, std::make_integer_sequence<int, 16>{});
    store(covariance,
          withoutTraces(broadcast<16>(smoothing[1]) * load<16>(covariance) + broadcast<16>(smoothing[0]) * sums));
}

// These stages are not inlined, because their vectors would stay on the stack during the transform.

template <typename Layout>
[[gnu::noinline]] void smoothCovariances(const float (&subband)[2][64], Surrounds& s) noexcept
{
    const Floats<64> scale = broadcast<64>(kCovarianceScale);
    const Floats<64> l = load<64>(subband[0]) * scale;
    const Floats<64> r = load<64>(subband[1]) * scale;
    smoothCovariance<Layout>(l, l, s.smoothing, s.leftLeft);
    smoothCovariance<Layout>(r, r, s.smoothing, s.rightRight);
    smoothCovariance<Layout>(l, r, s.smoothing, s.leftRight);
}

/// The weights that cancel the dominant source of every group.
[[gnu::noinline]] void findWeights(Surrounds& s) noexcept
{
    const Floats<16> zero = broadcast<16>(0.0f);
    const Floats<16> half = broadcast<16>(0.5f);
    const Floats<16> ll = load<16>(s.leftLeft);
    const Floats<16> rr = load<16>(s.rightRight);
    const Floats<16> lr = load<16>(s.leftRight);

    const Floats<16> mean = half * (ll + rr) + broadcast<16>(0x1p-46f);
    const Floats<16> d = withoutTraces(half * (ll - rr)); // its square is not subnormal
    const Floats<16> diffuse = mean - squareRoot(d * d + lr * lr);
    const Floats<16> source = lr + broadcast<16>(kDiffuseShare) * select(zero < diffuse, diffuse, zero);
    const Floats<16> place = d / (squareRoot(d * d + source * source) + broadcast<16>(0x1p-100f));
    const Floats<16> left = half - half * place;
    const Floats<16> right = half + half * place;
    store(s.leftWeight, squareRoot(select(zero < left, left, zero)));
    store(s.rightWeight, squareRoot(select(zero < right, right, zero)));
}

/// Takes the difference of the block of lookAhead blocks before, and keeps the newest block in its place.
template <typename Layout>
[[gnu::noinline]] void takeDifference(const float (&subband)[2][64], Surrounds& s) noexcept
{
    auto& past = s.past[s.nextPast];
    store(s.difference, spreadOverBands<Layout>(load<16>(s.leftWeight)) * load<64>(past[0]) -
                            spreadOverBands<Layout>(load<16>(s.rightWeight)) * load<64>(past[1]));
    store(past[0], load<128>(subband[0]));
    s.nextPast = s.nextPast + 1 == s.lookAhead ? 0 : s.nextPast + 1;
}

void synthesise(Surrounds& s, float (&samples)[64]) noexcept
{
    splitIntoPairSums(s.difference, s.dctEven[0], s.dctOdd[0]);
    transformPairSums<1, 1024>(s.dctEven, s.dctOdd, s.synthHistory);
    overlapAddAndAdvance(s.synthHistory, s.overlapNow, s.overlapNext);
    store(samples, load<64>(s.overlapNow));
    advanceOverlap(s.overlapNow, s.overlapNext);
}

void filterBlock(AllPass& section, float (&block)[64]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    const std::int32_t start = section.position - section.delay;
    const float* const delayed = section.ring + (start < 0 ? start + section.length : start);
    float* const newest = section.ring + section.position;
    const Floats<kWidth> gain = broadcast<kWidth>(section.gain);
    for (int n = 0; n < 64; n += kWidth) {
        const Floats<kWidth> before = load<kWidth>(delayed + n);
        const Floats<kWidth> w = withoutTraces(load<kWidth>(block + n) + gain * before);
        store(newest + n, w);
        store(block + n, before - gain * w);
    }
    if (section.position == 0) store(section.ring + section.length, load<64>(section.ring));
    section.position = section.position + 64 == section.length ? 0 : section.position + 64;
}

} // namespace

void renderSurrounds(const ZRKTarn& engine, Surrounds& s) noexcept
{
    dispatchLayout(engine.bandCount, [&](auto layout) {
        using Layout = decltype(layout);
        smoothCovariances<Layout>(engine.subband, s);
        findWeights(s);
        takeDifference<Layout>(engine.subband, s);
    });
    float samples[64];
    synthesise(s, samples);
    for (int chain = 0; chain < s.chainsInUse; ++chain) {
        store(s.output[chain], load<64>(samples));
        for (AllPass& section : s.chain[chain]) filterBlock(section, s.output[chain]);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
