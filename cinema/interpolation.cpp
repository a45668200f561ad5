// The mixing matrix of every group.
// SPDX-License-Identifier: MIT
#include "cinema/interpolation.h"

#include "lanes/lanes.h"
#include "lanes/subnormal_safe.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr std::int32_t kRegionFloats = 12;             ///< from a region matrix to the next one
constexpr std::int32_t kRowFloats = 3 * kRegionFloats; ///< from a row of regions to the next one

/// The positions of all groups on one axis of the grid. The first half of the axis goes from the middle (weight 0) to
/// left or front (1), the second half from right or back (0) to the middle (1).
struct AxisPositions
{
    Ints<16> isSecondHalf;
    Floats<16> weight;
};

AxisPositions axisPositions(const Floats<16>& steering) noexcept
{
    const Ints<16> isFirstHalf = broadcast<16>(0.0f) <= steering;
    return {~isFirstHalf, select(isFirstHalf, steering, broadcast<16>(1.0f) + steering)};
}

/// Interpolates elements 0 to 5 of a matrix; lanes 6 and 7 are not used.
///
/// kSafeAcross  whether across may be near underflow; then every result may be
/// kSafeAlong   whether along may be; then the last product may be, but what it is added to is zero or far larger
/// corner       the first of the matrices at the four corners of the quadrant: weight 0 selects From, 1 selects To
template <bool kSafeAcross, bool kSafeAlong>
[[gnu::always_inline]] inline Floats<8> interpolated(const float* corner, float across, float along) noexcept
{
    const Floats<8> nearTo = load<8>(corner);
    const Floats<8> nearFrom = load<8>(corner + kRegionFloats);
    const Floats<8> farTo = load<8>(corner + kRowFloats);
    const Floats<8> farFrom = load<8>(corner + kRowFloats + kRegionFloats);
    const auto x = valuesOf<kSafeAcross>(broadcast<8>(across));
    const auto p = valuesOf<kSafeAcross>(nearFrom) - valuesOf<kSafeAcross>(nearFrom - nearTo) * x;
    const auto q = valuesOf<kSafeAcross>(farFrom) - valuesOf<kSafeAcross>(farFrom - farTo) * x;
    if constexpr (kSafeAcross) {
        return singlesOf(q + (p - q) * valuesOf<true>(broadcast<8>(along)));
    } else {
        return q + product<kSafeAlong>(p - q, along);
    }
}

template <bool kSafeAcross, bool kSafeAlong>
void interpolateGroups(ZRKTarn& engine, float (&elements)[6][16]) noexcept
{
    const AxisPositions columns = axisPositions(load<16>(engine.lrSlower));
    const AxisPositions rows = axisPositions(load<16>(engine.fbSlower));
    std::int32_t corner[16];
    float across[16];
    float along[16];
    store(corner,
          (columns.isSecondHalf & broadcast<16>(kRegionFloats)) + (rows.isSecondHalf & broadcast<16>(kRowFloats)));
    const float* const regions = engine.regionMatrix[0];
    store(across, columns.weight);
    store(along, rows.weight);

#pragma GCC unroll 1
    for (int g = 0; g < 16; g += 4) {
        Floats<4> first[4];
        Floats<4> last[4];
#pragma GCC unroll 4
        for (int k = 0; k < 4; ++k) {
            const Floats<8> matrix =
                interpolated<kSafeAcross, kSafeAlong>(regions + corner[g + k], across[g + k], along[g + k]);
            first[k] = lowHalf(matrix);
            last[k] = highHalf(matrix);
            store(engine.groupMatrix[g + k], first[k]);
            store(engine.groupMatrix[g + k] + 4, lowHalf(last[k]));
        }
        const Quads<4> firstElements = transposedQuads(first[0], first[1], first[2], first[3]);
        const Quads<4> lastElements = transposedQuads(last[0], last[1], last[2], last[3]);
#pragma GCC unroll 6
        for (int j = 0; j < 6; ++j)
            store(elements[j] + g, j < 4 ? firstElements.column[j % 4] : lastElements.column[j % 4]);
    }
}

} // namespace

bool interpolateMatrices(ZRKTarn& engine, float (&elements)[6][16]) noexcept
{
    const bool mayBeSubnormal = anySlow(load<16>(engine.lrSlower), load<16>(engine.fbSlower));
    if (!mayBeSubnormal) {
        interpolateGroups<false, false>(engine, elements);
    } else if (anySlow(load<16>(engine.lrSlower))) {
        interpolateGroups<true, true>(engine, elements);
    } else {
        interpolateGroups<false, true>(engine, elements);
    }
    return mayBeSubnormal;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
