// The mixing matrix of every group.
// SPDX-License-Identifier: MIT
#include "cinema/interpolation.h"

#include "lanes/lanes.h"
#include "lanes/subnormal_safe.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// The positions of all groups on one axis of the grid. The first half of the axis goes from the middle (weight 0) to
/// left or front (1), the second half from right or back (0) to the middle (1).
struct AxisPositions
{
    Ints<16> secondHalf; ///< 1 or 0
    Floats<16> weight;
};

AxisPositions axisPositions(const Floats<16>& steering) noexcept
{
    const Ints<16> firstHalf = broadcast<16>(0.0f) <= steering;
    return {firstHalf + broadcast<16>(std::int32_t{1}), // true is -1
            select(firstHalf, steering, broadcast<16>(1.0f) + steering)};
}

/// Computes elements 0 to 5 of every matrix; lanes 6 and 7 are not stored.
template <bool kSubnormalSafe>
void interpolateGroups(const float (&regionMatrix)[9][12], const AxisPositions& columns, const AxisPositions& rows,
                       float (&groupMatrix)[16][12]) noexcept
{
    std::int32_t corner[16];
    float across[16];
    float along[16];
    store(corner, columns.secondHalf + rows.secondHalf + rows.secondHalf + rows.secondHalf);
    store(across, columns.weight);
    store(along, rows.weight);

    for (int g = 0; g < 16; ++g) {
        // The matrices at the four corners of the quadrant: weight 0 selects From, weight 1 selects To.
        const Floats<8> nearTo = load<8>(regionMatrix[corner[g]]);
        const Floats<8> nearFrom = load<8>(regionMatrix[corner[g] + 1]);
        const Floats<8> farTo = load<8>(regionMatrix[corner[g] + 3]);
        const Floats<8> farFrom = load<8>(regionMatrix[corner[g] + 4]);
        const auto x = valuesOf<kSubnormalSafe>(broadcast<8>(across[g]));
        const auto y = valuesOf<kSubnormalSafe>(broadcast<8>(along[g]));
        const auto p = valuesOf<kSubnormalSafe>(nearFrom) - valuesOf<kSubnormalSafe>(nearFrom - nearTo) * x;
        const auto q = valuesOf<kSubnormalSafe>(farFrom) - valuesOf<kSubnormalSafe>(farFrom - farTo) * x;
        const Floats<8> matrix = singlesOf(q + (p - q) * y);

        const Floats<4> first = lowHalf(matrix);
        const Floats<2> last = lowHalf(highHalf(matrix));
        store(groupMatrix[g], first);
        store(groupMatrix[g] + 4, last);
    }
}

} // namespace

void interpolateMatrices(ZRKTarn& engine) noexcept
{
    const Floats<16> x = load<16>(engine.lrSlower);
    const Floats<16> y = load<16>(engine.fbSlower);
    if (anySlow(nearUnderflow(x) | nearUnderflow(y))) {
        interpolateGroups<true>(engine.regionMatrix, axisPositions(x), axisPositions(y), engine.groupMatrix);
    } else {
        interpolateGroups<false>(engine.regionMatrix, axisPositions(x), axisPositions(y), engine.groupMatrix);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
