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
    if (anySlow(load<16>(engine.powL), load<16>(engine.powR), load<16>(engine.powSum), load<16>(engine.powDiff))) {
        smoothAllPowers<true>(engine);
    } else {
        smoothAllPowers<false>(engine);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
