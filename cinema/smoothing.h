// First-order recursive means.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "lanes/lanes.h"
#include "lanes/subnormal_safe.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// The four smoothing pairs of the steering: mid, slower, slow, fast. Even lanes are alphas.
inline Floats<8> steeringPairs(const ZRKTarn& engine) noexcept
{
    const float pairs[8] = {engine.mid[0],  engine.mid[1],  engine.slower[0], engine.slower[1],
                            engine.slow[0], engine.slow[1], engine.fast[0],   engine.fast[1]};
    return load<8>(pairs);
}

/// One step of a first-order recursive mean: state = (1 - alpha) * state + alpha * value.
///
/// pair  (alpha, 1 - alpha)
inline void smooth(const float (&pair)[2], float value, float& state) noexcept
{
    state = subnormalSafeProduct(pair[1], state) + pair[0] * value;
}

/// The same for neighbouring states. Set kSubnormalSafe if a state may be near underflow, kSafePair if alpha may be.
template <bool kSubnormalSafe, bool kSafePair = false, int kCount>
[[gnu::always_inline]] inline Floats<kCount> smoothed(const float (&pair)[2], const Floats<kCount>& value,
                                                      const Floats<kCount>& state) noexcept
{
    return product<kSubnormalSafe>(state, pair[1]) + product<kSafePair>(value, pair[0]);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
