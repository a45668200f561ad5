// The smoothed peak measures of every group.
// SPDX-License-Identifier: MIT
#include "cinema/group_powers.h"

#include "cinema/smoothing.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

template <bool kSubnormalSafe>
void smoothPower(const float (&pair)[2], const float (&peak)[16], float (&power)[16]) noexcept
{
    store(power, smoothed<kSubnormalSafe>(pair, load<16>(peak), load<16>(power)));
}

template <bool kSubnormalSafe>
void smoothAllPowers(ZRKTarn& engine) noexcept
{
    smoothPower<kSubnormalSafe>(engine.power, engine.peakL, engine.powL);
    smoothPower<kSubnormalSafe>(engine.power, engine.peakR, engine.powR);
    smoothPower<kSubnormalSafe>(engine.power, engine.peakSum, engine.powSum);
    smoothPower<kSubnormalSafe>(engine.power, engine.peakDiff, engine.powDiff);
}

} // namespace

void smoothGroupPowers(ZRKTarn& engine) noexcept
{
    const Ints<16> mayBeSubnormal = nearUnderflow(load<16>(engine.powL)) | nearUnderflow(load<16>(engine.powR)) |
                                    nearUnderflow(load<16>(engine.powSum)) | nearUnderflow(load<16>(engine.powDiff));
    if (anySlow(mayBeSubnormal)) {
        smoothAllPowers<true>(engine);
    } else {
        smoothAllPowers<false>(engine);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
