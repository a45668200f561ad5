#pragma once

namespace zrk_tarn
{

/// One step of a first-order recursive mean: state = (1 - alpha) * state + alpha * value.
///
/// pair  (alpha, 1 - alpha)
inline void smooth(const float (&pair)[2], float value, float& state) noexcept
{
    state = pair[1] * state + pair[0] * value;
}

} // namespace zrk_tarn
