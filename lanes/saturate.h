// Conversion of floats to 32-bit integers with saturation.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/lanes.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Truncates towards zero and saturates to 32 bits; NaN becomes 0.
inline std::int32_t saturatedToInt32(float value) noexcept
{
    constexpr float kTop = 2147483648.0f;
    if (value >= kTop) return INT32_MAX;
    if (value <= -kTop) return INT32_MIN;
    return value == value ? static_cast<std::int32_t>(value) : 0;
}

/// Truncates towards zero and saturates to 32 bits; NaN becomes 0.
template <int kCount>
[[gnu::always_inline]] inline Ints<kCount> saturatedToInt32(const Floats<kCount>& a) noexcept
{
    const Floats<kCount> top = broadcast<kCount>(2147483648.0f);
    // Lanes outside the range are 0 here and become INT32_MAX or INT32_MIN below; NaN stays 0.
    const Ints<kCount> within = truncated(select(abs(a) < top, a, broadcast<kCount>(0.0f)));
    return within | ((top <= a) & broadcast<kCount>(INT32_MAX)) | ((a <= -top) & broadcast<kCount>(INT32_MIN));
}

/// Truncates a row of 64 values with saturation. Uses the fast conversion first, and repeats the row with the slower
/// saturating conversion only if a value is outside the range.
///
/// valuesFrom(n)      returns the vector of values that starts at index n
/// put(n, integers)   stores the truncated vector; must not change what valuesFrom reads
template <typename ValuesFrom, typename Put>
[[gnu::always_inline]] inline void truncateRow(ValuesFrom valuesFrom, Put put) noexcept
{
    constexpr int kWidth = kVectorFloats;
    // The result tells an overflow. A value of -2^31 is in range, but the slower conversion gives the same.
    Ints<kWidth> lowest = broadcast<kWidth>(std::int32_t{0});
    for (int n = 0; n < 64; n += kWidth) {
        const Ints<kWidth> whole = truncatedOrLowest(valuesFrom(n));
        lowest = lowest | (whole == broadcast<kWidth>(INT32_MIN));
        put(n, whole);
    }
    if (any(lowest))
        for (int n = 0; n < 64; n += kWidth) put(n, saturatedToInt32(valuesFrom(n)));
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
