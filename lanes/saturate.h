#pragma once

#include "lanes/lanes.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Truncates towards zero into 32 bits; what lies beyond the range takes its end, NaN becomes 0.
inline std::int32_t saturatedToInt32(float value) noexcept
{
    constexpr float kTop = 2147483648.0f;
    if (value >= kTop) return INT32_MAX;
    if (value <= -kTop) return INT32_MIN;
    return value == value ? static_cast<std::int32_t>(value) : 0;
}

/// True for lanes whose truncation has to saturate, and for NaN.
template <int kCount>
[[gnu::always_inline]] inline Ints<kCount> beyondInt32(const Floats<kCount>& a) noexcept
{
    return ~(abs(a) < broadcast<kCount>(2147483648.0f));
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
