// Arithmetic whose speed does not depend on subnormal numbers, with the bits of single precision.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/lanes.h"
#include "lanes/subnormal_speed.h"

#include <cstddef>
#include <type_traits>
#include <utility>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

// After a signal stops, recursive means decay to subnormal numbers, and products with them are subnormal too. A
// processor may need a hundred times longer for an operation with a subnormal operand or result. In double precision no
// sum or product of two singles is subnormal. A double has more than twice the digits of a single, so the result
// rounded to single has the same bits as in single precision. Other processors are hardly slower with subnormal
// numbers; there, stages always use single precision (subnormalsAreSlow).

/// The product of two singles, computed in double. The powers of two cancel out; without them, the compiler could
/// compute in single precision.
inline float subnormalSafeProduct(float a, float b) noexcept
{
    return static_cast<float>((static_cast<double>(a) * 0x1p64) * (static_cast<double>(b) * 0x1p-64));
}

/// Singles stored as doubles and rounded to single after every operation: slower, but with the same speed for all
/// values.
template <int kCount>
struct SubnormalSafe
{
    Doubles<kCount> doubles;
};

/// Rounds to single. The empty asm hides from the compiler that the operands were singles; otherwise it would compute
/// in single precision.
template <int kCount>
[[gnu::always_inline]] inline SubnormalSafe<kCount> rounded(const Doubles<kCount>& exact) noexcept
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
[[gnu::always_inline]] inline SubnormalSafe<kCount> operator+(const SubnormalSafe<kCount>& a,
                                                              const SubnormalSafe<kCount>& b) noexcept
{
    return rounded(a.doubles + b.doubles);
}

template <int kCount>
[[gnu::always_inline]] inline SubnormalSafe<kCount> operator-(const SubnormalSafe<kCount>& a,
                                                              const SubnormalSafe<kCount>& b) noexcept
{
    return rounded(a.doubles - b.doubles);
}

template <int kCount>
[[gnu::always_inline]] inline SubnormalSafe<kCount> operator*(const SubnormalSafe<kCount>& a,
                                                              const SubnormalSafe<kCount>& b) noexcept
{
    return rounded(a.doubles * b.doubles);
}

template <int kCount>
[[gnu::always_inline]] inline SubnormalSafe<kCount> reversed(const SubnormalSafe<kCount>& a) noexcept
{
    return {reversed(a.doubles)};
}

/// The operand type of a stage that is compiled for both kinds of arithmetic.
template <bool kSubnormalSafe, int kCount>
using Values = std::conditional_t<kSubnormalSafe, SubnormalSafe<kCount>, Floats<kCount>>;

template <bool kSubnormalSafe, int kCount>
[[gnu::always_inline]] inline Values<kSubnormalSafe, kCount> valuesOf(const Floats<kCount>& singles) noexcept
{
    if constexpr (kSubnormalSafe) {
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
[[gnu::always_inline]] inline Floats<kCount> singlesOf(const SubnormalSafe<kCount>& values) noexcept
{
    return toFloat(values.doubles);
}

/// a * b, in double if kSubnormalSafe.
template <bool kSubnormalSafe, int kCount>
[[gnu::always_inline]] inline Floats<kCount> product(const Floats<kCount>& a, const Floats<kCount>& b) noexcept
{
    return singlesOf(valuesOf<kSubnormalSafe>(a) * valuesOf<kSubnormalSafe>(b));
}

/// The same with one factor for all lanes.
template <bool kSubnormalSafe, int kCount>
[[gnu::always_inline]] inline Floats<kCount> product(const Floats<kCount>& a, float b) noexcept
{
    return product<kSubnormalSafe>(a, broadcast<kCount>(b));
}

/// Magnitudes below this bound are near underflow. The product of two factors above it is never subnormal. Signals are
/// far larger; only means, weights and weighted values become this small.
inline constexpr float kNearUnderflow = 0x1p-60f;

/// True for lanes whose products may be subnormal; false for zero. Affects speed, never results.
template <int kCount>
[[gnu::always_inline]] inline Ints<kCount> nearUnderflow(const Floats<kCount>& a) noexcept
{
    const Floats<kCount> magnitude = abs(a);
    return (magnitude < broadcast<kCount>(kNearUnderflow)) & (broadcast<kCount>(0.0f) < magnitude);
}

/// Whether a lane is near underflow, on processors that are slow with subnormal numbers.
template <int kCount, typename... More>
[[gnu::always_inline]] inline bool anySlow(const Floats<kCount>& first, const More&... more) noexcept
{
    if (!subnormalsAreSlow) return false;
    Floats<kCount> least = abs(first);
    ((least = smaller(abs(more), least)), ...);
    // Zeros are below the bound, but not near underflow. NaN can hide the same lane of another vector, which is slow
    // only.
    return any(least < broadcast<kCount>(kNearUnderflow)) && any((nearUnderflow(first) | ... | nearUnderflow(more)));
}

template <std::size_t kCount, std::size_t... kVector>
[[gnu::always_inline]] inline bool anyVectorSlow(const float (&values)[kCount],
                                                 std::index_sequence<kVector...> /*vectors*/) noexcept
{
    return anySlow(load<kVectorFloats>(values + kVector * kVectorFloats)...);
}

/// The same for the values of a row.
template <std::size_t kCount>
inline bool anySlow(const float (&values)[kCount]) noexcept
{
    return anyVectorSlow(values, std::make_index_sequence<kCount / kVectorFloats>{});
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
