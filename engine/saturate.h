#pragma once

#include <cmath>
#include <cstdint>

namespace zrk_tarn
{

/// Truncates towards zero into 32 bits; what lies beyond the range takes its end, NaN becomes 0.
///
/// value  float or double; the bounds are exact in both
template <typename Real>
inline std::int32_t saturatedToInt32(Real value) noexcept
{
    constexpr Real kTop = static_cast<Real>(2147483648.0);
    if (value >= kTop) return INT32_MAX;
    if (value <= -kTop) return INT32_MIN;
    return std::isnan(value) ? 0 : static_cast<std::int32_t>(value);
}

} // namespace zrk_tarn
