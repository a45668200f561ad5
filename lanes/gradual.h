#pragma once

#include "lanes/lanes.h"

#include <cstddef>
#include <type_traits>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

// Recursive means of a signal that has stopped shrink until they stick among the subnormal numbers, and what they weigh
// becomes as small. There a processor may take a hundred times as long for a product, and for a sum of two normal
// numbers that is not normal. In double precision nothing that singles can make is subnormal: a sum or product of two
// singles, rounded from there, has the same bits, since a double has more than twice their digits and two.

/// The product of two singles, formed where nothing is subnormal. The powers of two cancel; they keep compilers from
/// seeing that single precision would do.
inline float gradualProduct(float a, float b) noexcept
{
    return static_cast<float>((static_cast<double>(a) * 0x1p64) * (static_cast<double>(b) * 0x1p-64));
}

/// Singles held in double, rounded to single after every operation: slower, but alike for all magnitudes.
template <int kCount>
struct Gradual
{
    Doubles<kCount> doubles;
};

/// Compilers must not know where the doubles come from: one that saw singles on both sides of an operation would do it
/// in single precision.
template <int kCount>
[[gnu::always_inline]] inline Gradual<kCount> rounded(const Doubles<kCount>& exact) noexcept
{
    return {partwise<Doubles<kCount>>(
        [](auto part) {
#if defined __x86_64__ && !defined TARN_GENERIC
            asm("" : "+v"(part));
#elif defined __aarch64__ && !defined TARN_GENERIC
            asm("" : "+w"(part));
#else
            asm("" : "+m"(part));
#endif
            return roundedToSingle(part);
        },
        exact)};
}

template <int kCount>
[[gnu::always_inline]] inline Gradual<kCount> operator+(const Gradual<kCount>& a, const Gradual<kCount>& b) noexcept
{
    return rounded(a.doubles + b.doubles);
}

template <int kCount>
[[gnu::always_inline]] inline Gradual<kCount> operator-(const Gradual<kCount>& a, const Gradual<kCount>& b) noexcept
{
    return rounded(a.doubles - b.doubles);
}

template <int kCount>
[[gnu::always_inline]] inline Gradual<kCount> operator*(const Gradual<kCount>& a, const Gradual<kCount>& b) noexcept
{
    return rounded(a.doubles * b.doubles);
}

template <int kCount>
[[gnu::always_inline]] inline Gradual<kCount> reversed(const Gradual<kCount>& a) noexcept
{
    return {reversed(a.doubles)};
}

/// What a stage works with that is written for both ways.
template <bool kGradual, int kCount>
using Values = std::conditional_t<kGradual, Gradual<kCount>, Floats<kCount>>;

template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Values<kGradual, kCount> valuesOf(const Floats<kCount>& singles) noexcept
{
    if constexpr (kGradual) {
        return {toDouble(singles)};
    } else {
        return singles;
    }
}

template <int kCount>
[[gnu::always_inline]] inline Floats<kCount> singlesOf(const Floats<kCount>& values) noexcept
{
    return values;
}

template <int kCount>
[[gnu::always_inline]] inline Floats<kCount> singlesOf(const Gradual<kCount>& values) noexcept
{
    return toFloat(values.doubles);
}

/// a * b, with kGradual formed where nothing is subnormal.
template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Floats<kCount> product(const Floats<kCount>& a, const Floats<kCount>& b) noexcept
{
    return singlesOf(valuesOf<kGradual>(a) * valuesOf<kGradual>(b));
}

/// The same with one factor for all lanes.
template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Floats<kCount> product(const Floats<kCount>& a, float b) noexcept
{
    return product<kGradual>(a, broadcast<kCount>(b));
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
