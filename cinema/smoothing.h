// First-order recursive means.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "lanes/lanes.h"
#include "lanes/subnormal_safe.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Whether the alpha of a steering pair is near underflow, on processors that are slow with subnormal numbers. Many
/// changes of the format can scale it down that far.
inline bool anyPairSlow(const ZRKTarn& engine) noexcept
{
    return subnormalsAreSlow && (nearUnderflow(engine.slower[0]) || nearUnderflow(engine.slow[0]) ||
                                 nearUnderflow(engine.mid[0]) || nearUnderflow(engine.fast[0]));
}

/// One step of a first-order recursive mean: state = (1 - alpha) * state + alpha * value.
///
/// pair  (alpha, 1 - alpha); set kSafePair if alpha may be near underflow
template <bool kSafePair = false>
inline void smooth(const float (&pair)[2], float value, float& state) noexcept
{
    state = subnormalSafeProduct(pair[1], state) + (kSafePair ? subnormalSafeProduct(pair[0], value) : pair[0] * value);
}

/// The same for neighbouring states. Set kSubnormalSafe if a state may be near underflow.
template <bool kSubnormalSafe, bool kSafePair = false, int kCount>
[[gnu::always_inline]] inline Floats<kCount> smoothed(const float (&pair)[2], const Floats<kCount>& value,
                                                      const Floats<kCount>& state) noexcept
{
    return product<kSubnormalSafe>(state, pair[1]) + product<kSafePair>(value, pair[0]);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
