#pragma once

#include "lanes/lanes.h"

#include <cstddef>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

// Recursive means of a signal that has stopped shrink until they stick among the subnormal numbers, and what they weigh
// becomes as small; there a processor may take a hundred times as long for a product. In double precision the product
// of two singles is exact and no longer subnormal, and its conversion rounds once, so that the result has the same
// bits.

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

/// The largest magnitude that is near underflow. Two factors above it make no subnormal product; signals are far
/// louder, so that only means, weights and what is weighted with them come near it.
inline constexpr float kNearUnderflow = 0x1p-60f;

/// True for lanes so small that a product with them may be subnormal; not for zero. Tells the faster way only: both
/// give the same bits.
template <int kCount>
[[gnu::always_inline]] inline Ints<kCount> nearUnderflow(const Floats<kCount>& a) noexcept
{
    const Floats<kCount> magnitude = abs(a);
    return (magnitude < broadcast<kCount>(kNearUnderflow)) & (broadcast<kCount>(0.0f) < magnitude);
}

inline bool nearUnderflow(float a) noexcept
{
    return a != 0.0f && __builtin_fabsf(a) < kNearUnderflow;
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

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
