// Mixes subbands with the matrices of their groups.
// SPDX-License-Identifier: MIT
#include "cinema/mixing.h"

#include "cinema/band_layouts.h"
#include "lanes/lanes.h"
#include "lanes/subnormal_safe.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// The matrices with the front gain applied; lanes are groups.
struct Mix
{
    Floats<16> frontLeftOfL, frontLeftOfR;
    Floats<16> centreOfL, centreOfR;
    Floats<16> frontRightOfL, frontRightOfR;
};

/// Which products may be subnormal. Affects speed, never results.
enum class Subnormal
{
    None,
    Gains,     ///< those of elements with the front gain
    Crossings, ///< those of elements 1 and 4: from right to front left, from left to front right
    All
};

template <typename... Index>
bool anyNearUnderflow(const float (&elements)[6][16], Index... index) noexcept
{
    return any((nearUnderflow(load<16>(elements[index])) | ...));
}

// The gain of the fronts is (1 - |lr|) * 0.5 + 1, computed in double and rounded once. This form has the same bits for
// every float.

float frontGain(float lr) noexcept
{
    return (3.0f - __builtin_fabsf(lr)) * 0.5f;
}

Floats<16> frontGain(const Floats<16>& lr) noexcept
{
    return (broadcast<16>(3.0f) - abs(lr)) * broadcast<16>(0.5f);
}

template <Subnormal kSubnormal>
Mix mixWithGain(const float (&elements)[6][16], const float (&lr)[16]) noexcept
{
    constexpr bool kSafeCrossings = kSubnormal != Subnormal::None;
    constexpr bool kSafe = kSafeCrossings && kSubnormal != Subnormal::Crossings;
    const Floats<16> gain = frontGain(load<16>(lr));
    return {product<kSafe>(load<16>(elements[0]), gain),
            product<kSafeCrossings>(load<16>(elements[1]), gain),
            load<16>(elements[2]),
            load<16>(elements[3]),
            product<kSafeCrossings>(load<16>(elements[4]), gain),
            product<kSafe>(load<16>(elements[5]), gain)};
}

/// kSafeL, kSafeR  whether the terms of left and right may be subnormal; their sum may be if both may
template <bool kSafeL, bool kSafeR, typename Layout>
[[gnu::always_inline]] inline Floats<64> mixed(const Floats<16>& gainL, const Floats<64>& l, const Floats<16>& gainR,
                                               const Floats<64>& r) noexcept
{
    const Floats<64> ofL = spreadOverBands<Layout>(gainL);
    const Floats<64> ofR = spreadOverBands<Layout>(gainR);
    if constexpr (kSafeL && kSafeR) {
        return singlesOf(valuesOf<true>(ofL) * valuesOf<true>(l) + valuesOf<true>(ofR) * valuesOf<true>(r));
    } else {
        return product<kSafeL>(ofL, l) + product<kSafeR>(ofR, r);
    }
}

template <Subnormal kSubnormal, typename Layout>
void mixBands(const float (&elements)[6][16], ZRKTarn& engine) noexcept
{
    constexpr bool kSafe = kSubnormal == Subnormal::All;
    constexpr bool kSafeCrossings = kSafe || kSubnormal == Subnormal::Crossings;
    const Mix mix = mixWithGain<kSubnormal>(elements, engine.lrSlower);
    const Floats<64> l = load<64>(engine.subband[0]);
    const Floats<64> r = load<64>(engine.subband[1]);
    store(engine.outSubband[0], mixed<kSafe, kSafeCrossings, Layout>(mix.frontLeftOfL, l, mix.frontLeftOfR, r));
    store(engine.outSubband[1], mixed<kSafeCrossings, kSafe, Layout>(mix.frontRightOfL, l, mix.frontRightOfR, r));
    store(engine.outSubband[2], mixed<kSafe, kSafe, Layout>(mix.centreOfL, l, mix.centreOfR, r));
}

bool isSilent(const float (&subband)[2][64]) noexcept
{
    const Floats<128> both = load<128>(subband[0]);
    return !any(~(both == broadcast<128>(0.0f)));
}

/// Returns the rows that are near underflow, a bit for each.
template <typename Layout>
std::uint32_t mixBands(ZRKTarn& engine, const float (&elements)[6][16], bool mayBeSubnormal) noexcept
{
    if (!mayBeSubnormal || !anyNearUnderflow(elements, 0, 1, 2, 3, 4, 5)) {
        mixBands<Subnormal::None, Layout>(elements, engine);
        return 0;
    }
    if (isSilent(engine.subband)) {
        mixBands<Subnormal::Gains, Layout>(elements, engine);
        return 0;
    }
    if (anyNearUnderflow(elements, 0, 2, 3, 5)) {
        mixBands<Subnormal::All, Layout>(elements, engine);
    } else {
        mixBands<Subnormal::Crossings, Layout>(elements, engine);
    }
    std::uint32_t slow = 0;
    for (std::uint32_t r = 0; r < 3; ++r) slow |= static_cast<std::uint32_t>(anySlow(engine.outSubband[r])) << r;
    return slow;
}

/// Mixes any grouping, band after band.
void mixGroups(ZRKTarn& engine) noexcept
{
    std::int32_t& b = engine.bandIndex;
    b = 0;
    for (int g = 0; g < 16; ++g) {
        const float* const c = engine.groupMatrix[g];
        const float gain = frontGain(engine.lrSlower[g]);
        for (const std::int32_t end = b + engine.bandCount[g]; b < end; ++b) {
            const float l = engine.subband[0][b];
            const float r = engine.subband[1][b];
            engine.outSubband[0][b] = (c[0] * gain) * l + (gain * c[1]) * r;
            engine.outSubband[2][b] = c[2] * l + c[3] * r;
            engine.outSubband[1][b] = (c[4] * gain) * l + (c[5] * gain) * r;
        }
    }
}

} // namespace

std::uint32_t mixSubbands(ZRKTarn& engine, const float (&elements)[6][16], bool mayBeSubnormal) noexcept
{
    std::uint32_t slow = 0;
    const bool known = dispatchLayout(
        engine.bandCount, [&](auto layout) { slow = mixBands<decltype(layout)>(engine, elements, mayBeSubnormal); });
    if (known) {
        engine.bandIndex = 64;
    } else {
        mixGroups(engine);
    }
    engine.groupIndex = 16;
    for (int j = 0; j < 6; ++j) engine.mixCoeff[j] = engine.groupMatrix[15][j];
    return slow;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
