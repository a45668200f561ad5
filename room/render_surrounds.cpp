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

/// How much more of it counts the nearer the source is to the centre, within 13 degrees of the pan law: such a source
/// is most likely a voice, and other sources at the same time draw its place away from the centre.
constexpr float kDiffuseShareNearCentre = 3.0f;

template <int kCount>
Floats<kCount> withoutTraces(const Floats<kCount>& values) noexcept
{
    const Floats<kCount> zero = broadcast<kCount>(0.0f);
    return select(abs(values) < broadcast<kCount>(kTrace), zero, values);
}

/// Four partial sums, each over every fourth value. Additions of zero are left out, because they only change the sign
/// of zero, on which the covariances do not depend.
template <int kCount>
float sumOf(const float* values) noexcept
{
    if constexpr (kCount == 1) {
        return values[0];
    } else if constexpr (kCount < 4) {
        float sum = values[0] + values[1];
        if constexpr (kCount == 3) sum += values[2];
        return sum;
    } else {
        Floats<4> sums = load<4>(values);
        for (int n = 4; n + 4 <= kCount; n += 4) sums = sums + load<4>(values + n);
        float partial[4];
        store(partial, sums);
        for (int n = kCount - kCount % 4; n < kCount; ++n) partial[n % 4] += values[n];
        return (partial[0] + partial[1]) + (partial[2] + partial[3]);
    }
}

// These stages are not inlined. Their vectors would stay on the stack during the transform, and compilers would extract
// the terms of the sums from vector registers one by one.

/// The sums over the bands of every group.
template <typename Layout, int... kGroup>
[[gnu::noinline]] void sumGroups(const float (&products)[3][64], float (&sums)[3][16],
                                 std::integer_sequence<int, kGroup...> /*groups*/) noexcept
{
    for (int which = 0; which < 3; ++which)
        ((sums[which][kGroup] = sumOf<Layout::kCount[kGroup]>(products[which] + Layout::firstOf(kGroup))), ...);
}

void smoothCovariance(const float (&sums)[16], const float (&smoothing)[2], float (&covariance)[16]) noexcept
{
    store(covariance, withoutTraces(broadcast<16>(smoothing[1]) * load<16>(covariance) +
                                    broadcast<16>(smoothing[0]) * load<16>(sums)));
}

template <typename Layout>
[[gnu::noinline]] void smoothCovariances(const float (&subband)[2][64], Surrounds& s) noexcept
{
    const Floats<64> scale = broadcast<64>(kCovarianceScale);
    const Floats<64> l = load<64>(subband[0]) * scale;
    const Floats<64> r = load<64>(subband[1]) * scale;
    float products[3][64];
    store(products[0], l * l);
    store(products[1], r * r);
    store(products[2], l * r);
    float sums[3][16];
    sumGroups<Layout>(products, sums, std::make_integer_sequence<int, 16>{});
    smoothCovariance(sums[0], s.smoothing, s.leftLeft);
    smoothCovariance(sums[1], s.smoothing, s.rightRight);
    smoothCovariance(sums[2], s.smoothing, s.leftRight);
}

/// The weights that cancel the dominant source of every group.
[[gnu::noinline]] void findWeights(Surrounds& s) noexcept
{
    const Floats<16> zero = broadcast<16>(0.0f);
    const Floats<16> half = broadcast<16>(0.5f);
    const Floats<16> tiny = broadcast<16>(0x1p-100f);
    const Floats<16> ll = load<16>(s.leftLeft);
    const Floats<16> rr = load<16>(s.rightRight);
    const Floats<16> lr = load<16>(s.leftRight);

    const Floats<16> mean = half * (ll + rr) + broadcast<16>(0x1p-46f);
    const Floats<16> d = withoutTraces(half * (ll - rr)); // its square is not subnormal
    const Floats<16> residue = mean - squareRoot(d * d + lr * lr);
    const Floats<16> diffuse = select(zero < residue, residue, zero);
    const Floats<16> found = lr + broadcast<16>(kDiffuseShare) * diffuse;

    const Floats<16> offCentre = abs(d);
    const Floats<16> excess = found - (offCentre + offCentre);
    const Floats<16> nearness = select(zero < excess, excess, zero) / (abs(found) + offCentre + tiny);
    const Floats<16> source = found + broadcast<16>(kDiffuseShareNearCentre) * diffuse * nearness;
    const Floats<16> place = d / (squareRoot(d * d + source * source) + tiny);
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
    transformPairSums(1, s.dctEven, s.dctOdd, s.synthHistory, 1024);
    overlapAddAndAdvance(s.synthHistory, s.overlapNow, s.overlapNext, samples);
}

/// Where a block of a section begins in its ring.
struct SectionBlock
{
    explicit SectionBlock(AllPass& section) noexcept
        : delayed(section.ring +
                  (section.position - section.delay + (section.position < section.delay ? section.length : 0))),
          newest(section.ring + section.position),
          gain(section.gain)
    {}

    /// Filters kVectorFloats samples. A delay is at least a block, so no sample depends on another one of its block.
    Floats<kVectorFloats> filter(const Floats<kVectorFloats>& x, int n) const noexcept
    {
        const Floats<kVectorFloats> before = load<kVectorFloats>(delayed + n);
        const Floats<kVectorFloats> coefficient = broadcast<kVectorFloats>(gain);
        const Floats<kVectorFloats> w = withoutTraces(x + coefficient * before);
        store(newest + n, w);
        return before - coefficient * w;
    }

    const float* delayed;
    float* newest;
    float gain;
};

void advance(AllPass& section) noexcept
{
    if (section.position == 0) store(section.ring + section.length, load<64>(section.ring));
    section.position = section.position + 64 == section.length ? 0 : section.position + 64;
}

/// Both sections of a chain.
void filterBlock(AllPass (&chain)[2], const float (&samples)[64], float (&output)[64]) noexcept
{
    const SectionBlock first(chain[0]);
    const SectionBlock second(chain[1]);
    for (int n = 0; n < 64; n += kVectorFloats)
        store(output + n, second.filter(first.filter(load<kVectorFloats>(samples + n), n), n));
    for (AllPass& section : chain) advance(section);
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
    for (int chain = 0; chain < s.chainsInUse; ++chain) filterBlock(s.chain[chain], samples, s.output[chain]);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
