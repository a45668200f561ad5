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

/// In double, rounded once.
float frontGain(float lr) noexcept
{
    return static_cast<float>((1.0 - __builtin_fabs(static_cast<double>(lr))) * 0.5 + 1.0);
}

/// The matrices with the front gain applied; lanes are groups.
struct Mix
{
    Floats<16> frontLeftOfL, frontLeftOfR;
    Floats<16> centreOfL, centreOfR;
    Floats<16> frontRightOfL, frontRightOfR;
};

/// The first eight elements of the rows as one vector.
template <int kRows>
Floats<8 * kRows> firstElements(const float (*rows)[12]) noexcept
{
    if constexpr (kRows == 1) {
        return load<8>(*rows);
    } else {
        return joined(firstElements<kRows / 2>(rows), firstElements<kRows / 2>(rows + kRows / 2));
    }
}

/// Elements of the matrices; lanes are groups.
struct Columns
{
    Floats<16> fronts[4];
    Floats<16> centre[2];
};

Columns columnsOf(const float (&matrices)[16][12]) noexcept
{
    // Transposes sixteen rows of eight elements.
    const Floats<128> rows = firstElements<16>(matrices);
    const LanePair<float, 64> e = deinterleaved(rows);
    const LanePair<float, 32> even = deinterleaved(e.even); // columns 0 2 4 6
    const LanePair<float, 32> odd = deinterleaved(e.odd);   // columns 1 3 5 7
    const LanePair<float, 16> c04 = deinterleaved(even.even);
    const LanePair<float, 16> c26 = deinterleaved(even.odd);
    const LanePair<float, 16> c15 = deinterleaved(odd.even);
    const LanePair<float, 16> c37 = deinterleaved(odd.odd);
    return {{c04.even, c15.even, c04.odd, c15.odd}, {c26.even, c37.even}};
}

bool anyColumnNearUnderflow(const Columns& c) noexcept
{
    return any(nearUnderflow(c.fronts[0]) | nearUnderflow(c.fronts[1]) | nearUnderflow(c.fronts[2]) |
               nearUnderflow(c.fronts[3]) | nearUnderflow(c.centre[0]) | nearUnderflow(c.centre[1]));
}

template <bool kSubnormalSafe>
Mix mixWithGain(const Columns& columns, const float (&lr)[16]) noexcept
{
    const Doubles<16> side = abs(toDouble(load<16>(lr)));
    const Floats<16> gain = toFloat((broadcast<16>(1.0) - side) * broadcast<16>(0.5) + broadcast<16>(1.0));
    return {product<kSubnormalSafe>(columns.fronts[0], gain),
            product<kSubnormalSafe>(columns.fronts[1], gain),
            columns.centre[0],
            columns.centre[1],
            product<kSubnormalSafe>(columns.fronts[2], gain),
            product<kSubnormalSafe>(columns.fronts[3], gain)};
}

template <bool kSubnormalSafe, typename Layout>
[[gnu::always_inline]] inline Floats<64> mixed(const Floats<16>& gainL, const Floats<64>& l, const Floats<16>& gainR,
                                               const Floats<64>& r) noexcept
{
    return singlesOf(valuesOf<kSubnormalSafe>(spreadOverBands<Layout>(gainL)) * valuesOf<kSubnormalSafe>(l) +
                     valuesOf<kSubnormalSafe>(spreadOverBands<Layout>(gainR)) * valuesOf<kSubnormalSafe>(r));
}

template <bool kSafeGain, bool kSubnormalSafe, typename Layout>
void mixBands(const Columns& columns, ZRKTarn& engine) noexcept
{
    const Mix mix = mixWithGain<kSafeGain>(columns, engine.lrSlower);
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
bool mixBands(ZRKTarn& engine) noexcept
{
    const Columns columns = columnsOf(engine.groupMatrix);
    // A coefficient is near underflow only if an interpolation weight is.
    const bool mayBeSubnormal =
        anySlow(nearUnderflow(load<16>(engine.lrSlower)) | nearUnderflow(load<16>(engine.fbSlower))) &&
        anyColumnNearUnderflow(columns);
    if (!mayBeSubnormal) {
        mixBands<false, false, Layout>(columns, engine);
        return false;
    }
    if (isSilent(engine.subband)) {
        mixBands<true, false, Layout>(columns, engine);
        return false;
    }
    mixBands<true, true, Layout>(columns, engine);
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

bool mixSubbands(ZRKTarn& engine) noexcept
{
    bool mayBeSubnormal = false;
    const bool known =
        dispatchLayout(engine.bandCount, [&](auto layout) { mayBeSubnormal = mixBands<decltype(layout)>(engine); });
    if (known) {
        engine.bandIndex = 64;
    } else {
        mixGroups(engine);
    }
    engine.groupIndex = 16;
    for (int j = 0; j < 6; ++j) engine.mixCoeff[j] = engine.groupMatrix[15][j];
    return mayBeSubnormal;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
