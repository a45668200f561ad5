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

bool anyElementNearUnderflow(const float (&elements)[6][16]) noexcept
{
    Ints<16> near = broadcast<16>(std::int32_t{0});
    for (const auto& element : elements) near = near | nearUnderflow(load<16>(element));
    return any(near);
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

template <bool kSubnormalSafe>
Mix mixWithGain(const float (&elements)[6][16], const float (&lr)[16]) noexcept
{
    const Floats<16> gain = frontGain(load<16>(lr));
    const auto withGain = [&](int j) { return product<kSubnormalSafe>(load<16>(elements[j]), gain); };
    return {withGain(0), withGain(1), load<16>(elements[2]), load<16>(elements[3]), withGain(4), withGain(5)};
}

template <bool kSubnormalSafe, typename Layout>
[[gnu::always_inline]] inline Floats<64> mixed(const Floats<16>& gainL, const Floats<64>& l, const Floats<16>& gainR,
                                               const Floats<64>& r) noexcept
{
    return singlesOf(valuesOf<kSubnormalSafe>(spreadOverBands<Layout>(gainL)) * valuesOf<kSubnormalSafe>(l) +
                     valuesOf<kSubnormalSafe>(spreadOverBands<Layout>(gainR)) * valuesOf<kSubnormalSafe>(r));
}

template <bool kSafeGain, bool kSubnormalSafe, typename Layout>
void mixBands(const float (&elements)[6][16], ZRKTarn& engine) noexcept
{
    const Mix mix = mixWithGain<kSafeGain>(elements, engine.lrSlower);
    const Floats<64> l = load<64>(engine.subband[0]);
    const Floats<64> r = load<64>(engine.subband[1]);
    store(engine.outSubband[0], mixed<kSubnormalSafe, Layout>(mix.frontLeftOfL, l, mix.frontLeftOfR, r));
    store(engine.outSubband[1], mixed<kSubnormalSafe, Layout>(mix.frontRightOfL, l, mix.frontRightOfR, r));
    store(engine.outSubband[2], mixed<kSubnormalSafe, Layout>(mix.centreOfL, l, mix.centreOfR, r));
}

bool isSilent(const float (&subband)[2][64]) noexcept
{
    const Floats<128> both = load<128>(subband[0]);
    return !any(~(both == broadcast<128>(0.0f)));
}

/// Returns whether a mixed subband is near underflow.
template <typename Layout>
bool mixBands(ZRKTarn& engine, const float (&elements)[6][16], bool mayBeSubnormal) noexcept
{
    if (!mayBeSubnormal || !anyElementNearUnderflow(elements)) {
        mixBands<false, false, Layout>(elements, engine);
        return false;
    }
    if (isSilent(engine.subband)) {
        mixBands<true, false, Layout>(elements, engine);
        return false;
    }
    mixBands<true, true, Layout>(elements, engine);
    return anySlow(engine.outSubband[0]) || anySlow(engine.outSubband[1]) || anySlow(engine.outSubband[2]);
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

bool mixSubbands(ZRKTarn& engine, const float (&elements)[6][16], bool mayBeSubnormal) noexcept
{
    bool subbandsMayBeSubnormal = false;
    const bool known = dispatchLayout(engine.bandCount, [&](auto layout) {
        subbandsMayBeSubnormal = mixBands<decltype(layout)>(engine, elements, mayBeSubnormal);
    });
    if (known) {
        engine.bandIndex = 64;
    } else {
        mixGroups(engine);
    }
    engine.groupIndex = 16;
    for (int j = 0; j < 6; ++j) engine.mixCoeff[j] = engine.groupMatrix[15][j];
    return subbandsMayBeSubnormal;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
