#pragma once

#include "lanes/lanes.h"

#include <cstddef>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

// Recursive means of a signal that has stopped shrink until they stick among the subnormal numbers, and there a
// processor may take a hundred times as long for a product. In double precision the product of two singles is exact
// and no longer subnormal, and its conversion rounds once, so that the result has the same bits.

/// The product of two singles, formed where nothing is subnormal. The powers of two cancel; they keep compilers from
/// seeing that single precision would do.
inline float gradualProduct(float a, float b) noexcept
{
    return static_cast<float>((static_cast<double>(a) * 0x1p64) * (static_cast<double>(b) * 0x1p-64));
}

/// a * b, with kGradual formed where nothing is subnormal.
template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Floats<kCount> product(const Floats<kCount>& a, const Floats<kCount>& b) noexcept
{
    if constexpr (kGradual) {
        const Doubles<kCount> up = toDouble(a) * broadcast<kCount>(0x1p64);
        const Doubles<kCount> down = toDouble(b) * broadcast<kCount>(0x1p-64);
        return toFloat(up * down);
    } else {
        return a * b;
    }
}

/// The same with one factor for all lanes.
template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Floats<kCount> product(const Floats<kCount>& a, float b) noexcept
{
    if constexpr (kGradual) {
        const Doubles<kCount> down = broadcast<kCount>(static_cast<double>(b) * 0x1p-64);
        return toFloat((toDouble(a) * broadcast<kCount>(0x1p64)) * down);
    } else {
        return a * broadcast<kCount>(b);
    }
}

/// True for lanes so small that a product with them may be subnormal; not for zero. Tells the faster way only: both
/// give the same bits.
template <int kCount>
[[gnu::always_inline]] inline Ints<kCount> nearUnderflow(const Floats<kCount>& a) noexcept
{
    const Floats<kCount> magnitude = abs(a);
    return (magnitude < broadcast<kCount>(0x1p-100f)) & (broadcast<kCount>(0.0f) < magnitude);
}

/// Whether any value of a row is near underflow.
template <std::size_t kCount>
inline bool anyNearUnderflow(const float (&values)[kCount]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    Ints<kWidth> near = broadcast<kWidth>(std::int32_t{0});
    for (std::size_t n = 0; n < kCount; n += kWidth) near = near | nearUnderflow(load<kWidth>(values + n));
    return any(near);
}

/// One step of a first-order recursive mean: state = (1 - alpha) * state + alpha * value.
///
/// pair  (alpha, 1 - alpha)
inline void smooth(const float (&pair)[2], float value, float& state) noexcept
{
    state = gradualProduct(pair[1], state) + pair[0] * value;
}

/// The same for neighbouring states; kGradual when any of them is near underflow.
template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Floats<kCount> smoothed(const float (&pair)[2], const Floats<kCount>& value,
                                                      const Floats<kCount>& state) noexcept
{
    return product<kGradual>(state, pair[1]) + broadcast<kCount>(pair[0]) * value;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
