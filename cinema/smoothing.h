#pragma once

#include "engine/zrk_tarn.h"
#include "lanes/gradual.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Whether a pair that steers has an alpha near underflow, as after many changes of the format.
inline bool anyTinyPair(const ZRKTarn& engine) noexcept
{
    return nearUnderflow(engine.slower[0]) || nearUnderflow(engine.slow[0]) || nearUnderflow(engine.mid[0]) ||
           nearUnderflow(engine.fast[0]);
}

/// One step of a first-order recursive mean: state = (1 - alpha) * state + alpha * value.
///
/// pair  (alpha, 1 - alpha); kTinyPair when alpha is near underflow
template <bool kTinyPair = false>
inline void smooth(const float (&pair)[2], float value, float& state) noexcept
{
    state = gradualProduct(pair[1], state) + (kTinyPair ? gradualProduct(pair[0], value) : pair[0] * value);
}

/// The same for neighbouring states; kGradual when any of them is near underflow.
template <bool kGradual, bool kTinyPair = false, int kCount>
[[gnu::always_inline]] inline Floats<kCount> smoothed(const float (&pair)[2], const Floats<kCount>& value,
                                                      const Floats<kCount>& state) noexcept
{
    return product<kGradual>(state, pair[1]) + product<kTinyPair>(value, pair[0]);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
