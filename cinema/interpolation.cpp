#include "cinema/interpolation.h"

#include "lanes/gradual.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// Where all groups stand along one axis of the grid: in its first half, from the middle (weight 0) to the left or
/// front (1), or in its second, from the right or back (0) to the middle (1).
struct Halves
{
    Ints<16> second; ///< 1 or 0
    Floats<16> weight;
};

Halves halvesOf(const Floats<16>& place) noexcept
{
    const Ints<16> first = broadcast<16>(0.0f) <= place;
    return {first + broadcast<16>(std::int32_t{1}), // true is -1
            select(first, place, broadcast<16>(1.0f) + place)};
}

/// Lanes 0 to 5 of a matrix are the elements that the mix uses; the other two are not kept.
template <bool kGradual>
void interpolateGroups(const float (&regionMatrix)[9][12], const Halves& columns, const Halves& rows,
                       float (&groupMatrix)[16][12]) noexcept
{
    std::int32_t corner[16];
    float across[16];
    float along[16];
    store(corner, columns.second + rows.second + rows.second + rows.second);
    store(across, columns.weight);
    store(along, rows.weight);

    for (int g = 0; g < 16; ++g) {
        // The matrices at the four corners of the quadrant; a weight leads from From (0) to To (1).
        const Floats<8> nearTo = load<8>(regionMatrix[corner[g]]);
        const Floats<8> nearFrom = load<8>(regionMatrix[corner[g] + 1]);
        const Floats<8> farTo = load<8>(regionMatrix[corner[g] + 3]);
        const Floats<8> farFrom = load<8>(regionMatrix[corner[g] + 4]);
        const auto x = valuesOf<kGradual>(broadcast<8>(across[g]));
        const auto y = valuesOf<kGradual>(broadcast<8>(along[g]));
        const auto p = valuesOf<kGradual>(nearFrom) - valuesOf<kGradual>(nearFrom - nearTo) * x;
        const auto q = valuesOf<kGradual>(farFrom) - valuesOf<kGradual>(farFrom - farTo) * x;
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
    if (any(nearUnderflow(x) | nearUnderflow(y))) {
        interpolateGroups<true>(engine.regionMatrix, halvesOf(x), halvesOf(y), engine.groupMatrix);
    } else {
        interpolateGroups<false>(engine.regionMatrix, halvesOf(x), halvesOf(y), engine.groupMatrix);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
