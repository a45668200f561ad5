// Vectors of neighbouring values, as wide as the instruction set.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/exact_floats.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#if defined __x86_64__ && !defined TARN_GENERIC
#include <immintrin.h>
#endif

/// Lanes<T, kCount> holds kCount values in as many vector registers as they need, so a stage is written once for all
/// instruction sets. Arithmetic and comparisons work lane by lane and round like the scalar operators. Only anyOrderSum
/// adds lanes to each other, so the code of a stage defines the order of all other sums.
///
/// The build compiles every stage once per instruction set and sets TARN_INSTRUCTION_SET to its name (sse2, avx2, ...),
/// which is the namespace. Code in it must not call inline functions from outside, including standard algorithms: the
/// linker keeps only one copy of them, which may be compiled for an instruction set that the processor lacks.

// Wide vectors are passed between inlined functions only, so the calling convention does not matter.
#if defined __clang__
#pragma clang diagnostic ignored "-Wpsabi"
#else
#pragma GCC diagnostic ignored "-Wpsabi"
#endif

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

#if defined __AVX512F__
inline constexpr int kVectorBytes = 64;
#elif defined __AVX2__
inline constexpr int kVectorBytes = 32;
#else
inline constexpr int kVectorBytes = 16;
#endif

/// Single-precision values in one vector register.
inline constexpr int kVectorFloats = kVectorBytes / 4;

/// The signed integer with the size of a lane, the type of comparison masks.
template <int kBytes>
struct LaneInteger;
template <>
struct LaneInteger<4>
{
    using Type = std::int32_t;
};
template <>
struct LaneInteger<8>
{
    using Type = std::int64_t;
};

template <typename T, int kCount>
struct Lanes
{
    static constexpr int kBytes = kCount * static_cast<int>(sizeof(T));
    static constexpr int kWidth = (kBytes < kVectorBytes ? kBytes : kVectorBytes) / static_cast<int>(sizeof(T));
    static constexpr int kParts = kCount / kWidth;
    static constexpr std::size_t kPartBytes = static_cast<std::size_t>(kBytes / kParts);

    using Part [[gnu::vector_size(kPartBytes)]] = T;
    using Unaligned [[gnu::vector_size(kPartBytes), gnu::aligned(alignof(T)), gnu::may_alias]] = T;

    /// The indices of the parts, for pack expansions over all parts. In loops, compilers would keep the parts in
    /// memory.
    using Parts = std::make_integer_sequence<int, kParts>;

    /// True lanes are all ones, false ones zero.
    using Mask = Lanes<typename LaneInteger<sizeof(T)>::Type, kCount>;

    Part part[static_cast<std::size_t>(kParts)];
};

template <int kCount>
using Floats = Lanes<float, kCount>;
template <int kCount>
using Doubles = Lanes<double, kCount>;
template <int kCount>
using Ints = Lanes<std::int32_t, kCount>;

template <int kPart, typename Operation, typename... L>
[[gnu::always_inline]] inline auto onPart(Operation operation, const L&... lanes) noexcept
{
    return operation(lanes.part[kPart]...);
}

template <typename Result, int... kPart, typename Operation, typename... L>
[[gnu::always_inline]] inline Result onParts(std::integer_sequence<int, kPart...> /*parts*/, Operation operation,
                                             const L&... lanes) noexcept
{
    return {{onPart<kPart>(operation, lanes...)...}};
}

/// Applies the operation to the parts with the same index.
template <typename Result, typename Operation, typename... L>
[[gnu::always_inline]] inline Result partwise(Operation operation, const L&... lanes) noexcept
{
    return onParts<Result>(typename Result::Parts{}, operation, lanes...);
}

// --- Memory, at any alignment --------------------------------------------------------------------------------------

template <typename L, typename T, int... kPart>
[[gnu::always_inline]] inline L loadParts(const T* values, std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    // cppcheck-suppress constStatement ; not a statement but one element per part
    return {{*reinterpret_cast<const typename L::Unaligned*>(values + kPart * L::kWidth)...}};
}

template <int kCount, typename T>
[[gnu::always_inline]] inline Lanes<T, kCount> load(const T* values) noexcept
{
    using L = Lanes<T, kCount>;
    return loadParts<L>(values, typename L::Parts{});
}

template <typename T, int kCount, int... kPart>
[[gnu::always_inline]] inline void storeParts(T* values, const Lanes<T, kCount>& lanes,
                                              std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    using L = Lanes<T, kCount>;
    ((*reinterpret_cast<typename L::Unaligned*>(values + kPart * L::kWidth) = lanes.part[kPart]), ...);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline void store(T* values, const Lanes<T, kCount>& lanes) noexcept
{
    storeParts(values, lanes, typename Lanes<T, kCount>::Parts{});
}

/// Keeps loaded values in a register. Without it, GCC loads them again for every use as an operand.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> inRegister(const Lanes<T, kCount>& lanes) noexcept
{
    return partwise<Lanes<T, kCount>>(
        [](auto part) {
#if defined __x86_64__ && !defined TARN_GENERIC
            asm("" : "+v"(part));
#endif
            return part;
        },
        lanes);
}

/// Hides where stored values come from, so that they are loaded from memory. Without it, GCC replaces the loads of
/// single values by permutations of the vector that was stored, which cost more where a load can copy one value to all
/// lanes.
template <typename T>
[[gnu::always_inline]] inline const T* inMemory(const T* values) noexcept
{
#if defined __AVX__
    asm volatile("" : "+r"(values) : : "memory");
#endif
    return values;
}

template <typename L, typename T, int... kPart>
[[gnu::always_inline]] inline L broadcastParts(T value, std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    return {{((void)kPart, value - typename L::Part{})...}};
}

/// The same value in every lane. Subtracts zero, because adding it would change minus zero to plus zero.
template <int kCount, typename T>
[[gnu::always_inline]] inline Lanes<T, kCount> broadcast(T value) noexcept
{
    using L = Lanes<T, kCount>;
    return broadcastParts<L>(value, typename L::Parts{});
}

// --- Lane by lane --------------------------------------------------------------------------------------------------

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> operator+(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    return partwise<Lanes<T, kCount>>([](auto x, auto y) { return x + y; }, a, b);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> operator-(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    return partwise<Lanes<T, kCount>>([](auto x, auto y) { return x - y; }, a, b);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> operator*(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    return partwise<Lanes<T, kCount>>([](auto x, auto y) { return x * y; }, a, b);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> operator/(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    return partwise<Lanes<T, kCount>>([](auto x, auto y) { return x / y; }, a, b);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> operator&(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    return partwise<Lanes<T, kCount>>([](auto x, auto y) { return x & y; }, a, b);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> operator|(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    return partwise<Lanes<T, kCount>>([](auto x, auto y) { return x | y; }, a, b);
}

/// Shifts left by kBits; zeros follow.
template <int kBits, int kCount>
[[gnu::always_inline]] inline Ints<kCount> shiftedLeft(const Ints<kCount>& a) noexcept
{
    return partwise<Ints<kCount>>([](auto x) { return x << kBits; }, a);
}

/// Shifts right by kBits; the sign follows.
template <int kBits, int kCount>
[[gnu::always_inline]] inline Ints<kCount> shiftedRight(const Ints<kCount>& a) noexcept
{
    return partwise<Ints<kCount>>([](auto x) { return x >> kBits; }, a);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> operator-(const Lanes<T, kCount>& a) noexcept
{
    return partwise<Lanes<T, kCount>>([](auto x) { return -x; }, a);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> operator~(const Lanes<T, kCount>& a) noexcept
{
    return partwise<Lanes<T, kCount>>([](auto x) { return ~x; }, a);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline auto operator<(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    using Mask = typename Lanes<T, kCount>::Mask;
    return partwise<Mask>([](auto x, auto y) -> typename Mask::Part { return x < y; }, a, b);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline auto operator<=(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    using Mask = typename Lanes<T, kCount>::Mask;
    return partwise<Mask>([](auto x, auto y) -> typename Mask::Part { return x <= y; }, a, b);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline auto operator==(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    using Mask = typename Lanes<T, kCount>::Mask;
    return partwise<Mask>([](auto x, auto y) -> typename Mask::Part { return x == y; }, a, b);
}

/// a where the mask is true, else b.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> select(const typename Lanes<T, kCount>::Mask& mask,
                                                      const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    return partwise<Lanes<T, kCount>>([](auto m, auto x, auto y) { return m ? x : y; }, mask, a, b);
}

/// a where it is larger than b, else b; b for NaN in either. One instruction, which compilers find in this form; with
/// masks of AVX-512, GCC does not.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> larger(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    static_assert(!std::is_integral_v<T>);
    return partwise<Lanes<T, kCount>>(
        [](auto x, auto y) -> typename Lanes<T, kCount>::Part {
#if defined __AVX512F__
            if constexpr (sizeof x == 64 && sizeof(T) == 8) return _mm512_maskz_max_pd(0xff, x, y);
            if constexpr (sizeof x == 64 && sizeof(T) == 4) return _mm512_maskz_max_ps(0xffff, x, y);
#endif
            return x > y ? x : y;
        },
        a, b);
}

/// a where it is smaller than b, else b; b for NaN in either.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> smaller(const Lanes<T, kCount>& a, const Lanes<T, kCount>& b) noexcept
{
    static_assert(!std::is_integral_v<T>);
    return partwise<Lanes<T, kCount>>([](auto x, auto y) { return x < y ? x : y; }, a, b);
}

/// Reinterprets the bits as another lane type of the same size.
template <typename To, typename T, int kCount>
[[gnu::always_inline]] inline Lanes<To, kCount> bitsAs(const Lanes<T, kCount>& a) noexcept
{
    using Result = Lanes<To, kCount>;
    return partwise<Result>([](auto x) { return reinterpret_cast<typename Result::Part>(x); }, a);
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> abs(const Lanes<T, kCount>& a) noexcept
{
    using Integer = typename LaneInteger<sizeof(T)>::Type;
    constexpr Integer kAllButSign = sizeof(T) == 4 ? static_cast<Integer>(INT32_MAX) : static_cast<Integer>(INT64_MAX);
    return bitsAs<T>(bitsAs<Integer>(a) & broadcast<kCount>(kAllButSign));
}

/// The square root of one part. GCC has no operation for the whole vector; the intrinsics are one instruction.
template <typename Part>
[[gnu::always_inline]] inline Part squareRootOfPart(Part a) noexcept
{
#if defined __x86_64__ && !defined TARN_GENERIC
    if constexpr (sizeof(Part) == 16) return _mm_sqrt_ps(a);
#endif
#if defined __AVX__
    if constexpr (sizeof(Part) == 32) return _mm256_sqrt_ps(a);
#endif
#if defined __AVX512F__
    if constexpr (sizeof(Part) == 64) return _mm512_maskz_sqrt_ps(0xffff, a);
#endif
#if !defined __x86_64__ || defined TARN_GENERIC
    for (std::size_t n = 0; n < sizeof(Part) / sizeof(float); ++n) a[n] = __builtin_sqrtf(a[n]);
    return a;
#endif
}

/// The square roots of values that are not negative.
template <int kCount>
[[gnu::always_inline]] inline Floats<kCount> squareRoot(const Floats<kCount>& a) noexcept
{
    return partwise<Floats<kCount>>([](auto x) { return squareRootOfPart(x); }, a);
}

/// A non-negative a with the sign of b.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> withSignOf(const Lanes<T, kCount>& b, const Lanes<T, kCount>& a) noexcept
{
    using Integer = typename LaneInteger<sizeof(T)>::Type;
    const auto signBit = broadcast<kCount>(static_cast<Integer>(sizeof(T) == 4 ? INT32_MIN : INT64_MIN));
#if defined __AVX512F__
    if constexpr (Lanes<T, kCount>::kPartBytes == 64) {
        // GCC does not combine "or" and "and" of three operands.
        constexpr int kOrAnd = 0xf8;
        return bitsAs<T>(partwise<Lanes<Integer, kCount>>(
            [](auto x, auto y, auto z) {
                using Part = decltype(x);
                return reinterpret_cast<Part>(_mm512_ternarylogic_epi32(
                    reinterpret_cast<__m512i>(x), reinterpret_cast<__m512i>(y), reinterpret_cast<__m512i>(z), kOrAnd));
            },
            bitsAs<Integer>(a), bitsAs<Integer>(b), signBit));
    }
#endif
    return bitsAs<T>(bitsAs<Integer>(a) | (bitsAs<Integer>(b) & signBit));
}

// --- Permutations --------------------------------------------------------------------------------------------------

/// Selects lanes from two vectors by index; the indices of b follow those of a.
template <typename Result, typename Part, int... kIndex>
[[gnu::always_inline]] inline Result shuffled(Part a, Part b, std::integer_sequence<int, kIndex...>) noexcept
{
    return __builtin_shufflevector(a, b, kIndex...);
}

template <int kFirst, int kStep, int... kLane>
constexpr auto steps(std::integer_sequence<int, kLane...>)
{
    return std::integer_sequence<int, (kFirst + kStep * kLane)...>{};
}

/// Indices kFirst, kFirst + kStep, ...
template <int kCount, int kFirst, int kStep>
using Steps = decltype(steps<kFirst, kStep>(std::make_integer_sequence<int, kCount>{}));

template <typename L, int... kPart>
[[gnu::always_inline]] inline L reversedParts(const L& a, std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    using Backwards = Steps<L::kWidth, L::kWidth - 1, -1>;
    return {{shuffled<typename L::Part>(a.part[L::kParts - 1 - kPart], a.part[L::kParts - 1 - kPart], Backwards{})...}};
}

/// The lanes in reverse order.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> reversed(const Lanes<T, kCount>& a) noexcept
{
    return reversedParts(a, typename Lanes<T, kCount>::Parts{});
}

template <typename L, typename T, int... kPart>
[[gnu::always_inline]] inline L shiftedUpParts(T first, const L& a,
                                               std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    using Up = Steps<L::kWidth, L::kWidth - 1, 1>;
    const typename L::Part below = first - typename L::Part{};
    return {
        {shuffled<typename L::Part>(kPart == 0 ? below : a.part[kPart == 0 ? 0 : kPart - 1], a.part[kPart], Up{})...}};
}

/// Shifts every lane up by one; first becomes lane 0 and the last lane is dropped.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> shiftedUp(T first, const Lanes<T, kCount>& a) noexcept
{
    return shiftedUpParts(first, a, typename Lanes<T, kCount>::Parts{});
}

template <typename T, int kCount>
struct LanePair
{
    Lanes<T, kCount> even;
    Lanes<T, kCount> odd;
};

#if defined __AVX2__
/// Every second of 16 lanes in two instructions: within the halves of the vectors, then pairs of lanes. GCC takes
/// three.
template <int kFirst, typename Part>
[[gnu::always_inline]] inline Part everySecondOf16(Part a, Part b) noexcept
{
    using Pairs [[gnu::vector_size(32)]] = double;
    constexpr int k = kFirst;
    const auto pairs =
        reinterpret_cast<Pairs>(__builtin_shufflevector(a, b, k, k + 2, k + 8, k + 10, k + 4, k + 6, k + 12, k + 14));
    return reinterpret_cast<Part>(__builtin_shufflevector(pairs, pairs, 0, 2, 1, 3));
}
#endif

template <typename Half, int kFirst, typename Whole, int... kPart>
[[gnu::always_inline]] inline Half everySecond(const Whole& a, std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    constexpr bool kOne = Whole::kParts == 1;
#if defined __AVX2__
    if constexpr (sizeof(typename Whole::Part) == 32 && Whole::kWidth == 8 && Half::kWidth == 8) {
        return {{everySecondOf16<kFirst>(a.part[2 * kPart], a.part[2 * kPart + 1])...}};
    }
#endif
    return {{shuffled<typename Half::Part>(a.part[kOne ? 0 : 2 * kPart], a.part[kOne ? 0 : 2 * kPart + 1],
                                           Steps<Half::kWidth, kFirst, 2>{})...}};
}

/// The lanes of even and of odd index.
template <typename T, int kCount>
[[gnu::always_inline]] inline LanePair<T, kCount / 2> deinterleaved(const Lanes<T, kCount>& a) noexcept
{
    using Half = Lanes<T, kCount / 2>;
    return {everySecond<Half, 0>(a, typename Half::Parts{}), everySecond<Half, 1>(a, typename Half::Parts{})};
}

/// The lower half of a part, or the upper one if kFirst is 1.
template <typename HalfPart, int kFirst, typename Part, int... kLane>
[[gnu::always_inline]] inline HalfPart halfPart(Part a, std::integer_sequence<int, kLane...> lanes) noexcept
{
    // The intrinsics can store their result, which GCC's permutations cannot.
#if defined __AVX__
    if constexpr (kFirst == 1 && sizeof(Part) == 32)
        return reinterpret_cast<HalfPart>(_mm256_extractf128_ps(reinterpret_cast<__m256>(a), 1));
#endif
#if defined __AVX512DQ__
    if constexpr (kFirst == 1 && sizeof(Part) == 64)
        return reinterpret_cast<HalfPart>(_mm512_extractf32x8_ps(reinterpret_cast<__m512>(a), 1));
#endif
    return shuffled<HalfPart>(a, a, lanes);
}

template <typename Half, int kFirst, typename Whole, int... kPart>
[[gnu::always_inline]] inline Half halfOf(const Whole& a, std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    if constexpr (Whole::kParts == 1) {
        return {{halfPart<typename Half::Part, kFirst>(a.part[0], Steps<Half::kWidth, kFirst * Half::kWidth, 1>{})}};
    } else {
        return {{a.part[kFirst * Half::kParts + kPart]...}};
    }
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount / 2> lowHalf(const Lanes<T, kCount>& a) noexcept
{
    using Half = Lanes<T, kCount / 2>;
    return halfOf<Half, 0>(a, typename Half::Parts{});
}

template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount / 2> highHalf(const Lanes<T, kCount>& a) noexcept
{
    using Half = Lanes<T, kCount / 2>;
    return halfOf<Half, 1>(a, typename Half::Parts{});
}

/// One part of two halves.
template <typename Part, typename HalfPart, int... kLane>
[[gnu::always_inline]] inline Part joinedPart(HalfPart low, HalfPart high,
                                              std::integer_sequence<int, kLane...> lanes) noexcept
{
    // The intrinsics save a move, which GCC adds to a shuffle.
#if defined __AVX__
    if constexpr (sizeof(Part) == 32)
        return reinterpret_cast<Part>(_mm256_set_m128(reinterpret_cast<__m128>(high), reinterpret_cast<__m128>(low)));
#endif
#if defined __AVX512DQ__
    if constexpr (sizeof(Part) == 64)
        return reinterpret_cast<Part>(_mm512_insertf32x8(_mm512_castps256_ps512(reinterpret_cast<__m256>(low)),
                                                         reinterpret_cast<__m256>(high), 1));
#endif
    return shuffled<Part>(low, high, lanes);
}

template <typename Whole, typename Half, int... kPart>
[[gnu::always_inline]] inline Whole joinedParts(const Half& low, const Half& high,
                                                std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    if constexpr (Whole::kParts == 1) {
        return {{joinedPart<typename Whole::Part>(low.part[0], high.part[0], Steps<Whole::kWidth, 0, 1>{})}};
    } else {
        return {{(kPart < Half::kParts ? low.part[kPart % Half::kParts] : high.part[kPart % Half::kParts])...}};
    }
}

/// Concatenates two halves.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, 2 * kCount> joined(const Lanes<T, kCount>& low,
                                                          const Lanes<T, kCount>& high) noexcept
{
    using Whole = Lanes<T, 2 * kCount>;
    return joinedParts<Whole>(low, high, typename Whole::Parts{});
}

/// The same eight values in both halves.
[[gnu::always_inline]] inline Floats<16> loadTwice(const float (&values)[8]) noexcept
{
#if defined __AVX512DQ__
    return {{_mm512_maskz_broadcast_f32x8(0xffff, _mm256_loadu_ps(values))}};
#else
    return joined(load<8>(values), load<8>(values));
#endif
}

template <int kFirst, int kOther, int... kLane>
constexpr auto alternate(std::integer_sequence<int, kLane...>)
{
    return std::integer_sequence<int, (kFirst + kLane / 2 + (kLane % 2 == 0 ? 0 : kOther))...>{};
}

/// Interleaves the lanes of half kHalf of even and odd.
template <int kHalf, typename L, int... kPart>
[[gnu::always_inline]] inline L interleavedHalf(const L& even, const L& odd,
                                                std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    using Lane = std::make_integer_sequence<int, L::kWidth>;
    constexpr int kFirst = kHalf * L::kParts; // counted in half parts
    return {{shuffled<typename L::Part>(even.part[(kFirst + kPart) / 2], odd.part[(kFirst + kPart) / 2],
                                        alternate<(kFirst + kPart) % 2 * L::kWidth / 2, L::kWidth>(Lane{}))...}};
}

/// Interleaves the lower halves of even and odd.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> lowInterleaved(const Lanes<T, kCount>& even,
                                                              const Lanes<T, kCount>& odd) noexcept
{
    return interleavedHalf<0>(even, odd, typename Lanes<T, kCount>::Parts{});
}

/// Interleaves the upper halves of even and odd.
template <typename T, int kCount>
[[gnu::always_inline]] inline Lanes<T, kCount> highInterleaved(const Lanes<T, kCount>& even,
                                                               const Lanes<T, kCount>& odd) noexcept
{
    return interleavedHalf<1>(even, odd, typename Lanes<T, kCount>::Parts{});
}

template <int kFirst, int... kLane>
constexpr auto alternateInPairs(std::integer_sequence<int, kLane...>)
{
    constexpr int kWidth = sizeof...(kLane);
    return std::integer_sequence<int, (kLane / 2 * 2 + kFirst + kLane % 2 * kWidth)...>{};
}

/// Transposes the 2 x 2 matrices of every two neighbouring lanes of a and b. Twice gives a and b again.
template <typename T, int kCount>
[[gnu::always_inline]] inline LanePair<T, kCount> transposedPairs(const Lanes<T, kCount>& a,
                                                                  const Lanes<T, kCount>& b) noexcept
{
    using L = Lanes<T, kCount>;
    using Lane = std::make_integer_sequence<int, L::kWidth>;
    return {
        partwise<L>([](auto x, auto y) { return shuffled<typename L::Part>(x, y, alternateInPairs<0>(Lane{})); }, a, b),
        partwise<L>([](auto x, auto y) { return shuffled<typename L::Part>(x, y, alternateInPairs<1>(Lane{})); }, a,
                    b)};
}

template <int kHalf, int... kLane>
constexpr auto alternateInQuads(std::integer_sequence<int, kLane...>)
{
    constexpr int kWidth = sizeof...(kLane);
    return std::integer_sequence<int, (kLane / 4 * 4 + 2 * kHalf + kLane % 4 / 2 + kLane % 2 * kWidth)...>{};
}

template <int kHalf, int... kLane>
constexpr auto pairsInQuads(std::integer_sequence<int, kLane...>)
{
    constexpr int kWidth = sizeof...(kLane);
    return std::integer_sequence<int, (kLane / 4 * 4 + 2 * kHalf + kLane % 2 + kLane % 4 / 2 * kWidth)...>{};
}

/// The columns of 4 x 4 matrices whose rows are the quads (every four neighbouring lanes) of four vectors.
template <int kCount>
struct Quads
{
    Floats<kCount> column[4];
};

/// Transposes the 4 x 4 matrices of every four neighbouring lanes.
template <int kCount>
[[gnu::always_inline]] inline Quads<kCount> transposedQuads(const Floats<kCount>& a, const Floats<kCount>& b,
                                                            const Floats<kCount>& c, const Floats<kCount>& d) noexcept
{
    using F = Floats<kCount>;
    static_assert(F::kParts == 1 && F::kWidth % 4 == 0);
    using Part = typename F::Part;
    using Lane = std::make_integer_sequence<int, kCount>;
    const auto low = [](Part x, Part y) { return shuffled<Part>(x, y, alternateInQuads<0>(Lane{})); };
    const auto high = [](Part x, Part y) { return shuffled<Part>(x, y, alternateInQuads<1>(Lane{})); };
    const auto lowPairs = [](Part x, Part y) { return shuffled<Part>(x, y, pairsInQuads<0>(Lane{})); };
    const auto highPairs = [](Part x, Part y) { return shuffled<Part>(x, y, pairsInQuads<1>(Lane{})); };
    const Part abLow = low(a.part[0], b.part[0]);
    const Part abHigh = high(a.part[0], b.part[0]);
    const Part cdLow = low(c.part[0], d.part[0]);
    const Part cdHigh = high(c.part[0], d.part[0]);
    return {{{{lowPairs(abLow, cdLow)}},
             {{highPairs(abLow, cdLow)}},
             {{lowPairs(abHigh, cdHigh)}},
             {{highPairs(abHigh, cdHigh)}}}};
}

#if defined __AVX512F__
template <int kSize>
[[gnu::always_inline]] inline __m512 lookedUpPart(const float* table, __m512i index) noexcept
{
    if constexpr (kSize == 32) {
        return _mm512_permutex2var_ps(_mm512_loadu_ps(table), index, _mm512_loadu_ps(table + 16));
    } else {
        const __mmask16 isHigh = _mm512_test_epi32_mask(index, _mm512_set1_epi32(kSize / 2));
        return _mm512_mask_blend_ps(isHigh, lookedUpPart<kSize / 2>(table, index),
                                    lookedUpPart<kSize / 2>(table + kSize / 2, index));
    }
}
#endif

template <int kPart, int... kLane>
[[gnu::always_inline]] inline auto lookedUpPart(const float* table, const std::int32_t (&index)[16],
                                                std::integer_sequence<int, kLane...> /*lanes*/) noexcept
{
    constexpr int kFirst = kPart * Floats<16>::kWidth;
    return typename Floats<16>::Part{table[index[kFirst + kLane]]...};
}

template <int... kPart>
[[gnu::always_inline]] inline Floats<16> lookedUpParts(const float* table, const std::int32_t (&index)[16],
                                                       std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    return {{lookedUpPart<kPart>(table, index, std::make_integer_sequence<int, Floats<16>::kWidth>{})...}};
}

/// The values of a table of kSize values, 64 or 128, at indices below kSize.
template <int kSize>
[[gnu::always_inline]] inline Floats<16> lookedUp(const float* table, const std::int32_t (&index)[16]) noexcept
{
#if defined __AVX512F__
    return {{lookedUpPart<kSize>(table, _mm512_loadu_si512(index))}};
#else
    return lookedUpParts(table, index, Floats<16>::Parts{});
#endif
}

// --- Conversions ---------------------------------------------------------------------------------------------------

template <int kCount>
[[gnu::always_inline]] inline Floats<kCount> toFloat(const Ints<kCount>& a) noexcept
{
    using F = Floats<kCount>;
    return partwise<F>([](auto x) { return __builtin_convertvector(x, typename F::Part); }, a);
}

/// Truncates towards zero; the result of lanes outside the range of the integer is undefined.
template <int kCount>
[[gnu::always_inline]] inline Ints<kCount> truncated(const Floats<kCount>& a) noexcept
{
    using I = Ints<kCount>;
    return partwise<I>([](auto x) { return __builtin_convertvector(x, typename I::Part); }, a);
}

template <int kCount>
[[gnu::always_inline]] inline Ints<kCount> truncated(const Doubles<kCount>& a) noexcept
{
    using I = Ints<kCount>;
    if constexpr (Doubles<kCount>::kParts == I::kParts) {
        return partwise<I>([](auto x) { return __builtin_convertvector(x, typename I::Part); }, a);
    } else {
#if defined __x86_64__ && !defined TARN_GENERIC
        // GCC converts a vector of two doubles one by one.
        static_assert(kCount == 4);
        const __m128i low = _mm_cvttpd_epi32(a.part[0]);
        const __m128i high = _mm_cvttpd_epi32(a.part[1]);
        return {{reinterpret_cast<typename I::Part>(_mm_unpacklo_epi64(low, high))}};
#else
        return joined(truncated(lowHalf(a)), truncated(highHalf(a)));
#endif
    }
}

/// Truncates towards zero; INT32_MIN for NaN and for lanes outside the range of the integer.
template <int kCount>
[[gnu::always_inline]] inline Ints<kCount> truncatedOrLowest(const Floats<kCount>& a) noexcept
{
#if defined __x86_64__ && !defined TARN_GENERIC
    using Part = typename Ints<kCount>::Part;
    return partwise<Ints<kCount>>(
        [](auto x) {
            if constexpr (sizeof(x) == 16) return reinterpret_cast<Part>(_mm_cvttps_epi32(x));
#if defined __AVX__
            if constexpr (sizeof(x) == 32) return reinterpret_cast<Part>(_mm256_cvttps_epi32(x));
#endif
#if defined __AVX512F__
            if constexpr (sizeof(x) == 64) return reinterpret_cast<Part>(_mm512_maskz_cvttps_epi32(0xffff, x));
#endif
        },
        a);
#else
    const Ints<kCount> inRange = abs(a) < broadcast<kCount>(2147483648.0f);
    return select(inRange, truncated(select(inRange, a, broadcast<kCount>(0.0f))), broadcast<kCount>(INT32_MIN));
#endif
}

// Conversions between single and double. GCC splits wide vectors into halves and passes vectors of two singles through
// memory; the intrinsics avoid that.

/// Converts a vector of singles to one part of doubles; for two doubles, the lower half of the vector.
template <typename Double, typename Single>
[[gnu::always_inline]] inline Double widened(const Single& a) noexcept
{
#if defined __x86_64__ && !defined TARN_GENERIC
    if constexpr (sizeof(Single) == 16 && sizeof(Double) == 16) {
        return _mm_cvtps_pd(a);
    } else
#endif
#if defined __AVX__
        if constexpr (sizeof(Double) == 32) {
        return _mm256_cvtps_pd(a);
    } else
#endif
#if defined __AVX512F__
        if constexpr (sizeof(Double) == 64) {
        return _mm512_maskz_cvtps_pd(0xff, a);
    } else
#endif
    {
        return __builtin_convertvector(a, Double);
    }
}

template <int kCount>
[[gnu::always_inline]] inline Doubles<kCount> toDouble(const Floats<kCount>& a) noexcept
{
    using D = Doubles<kCount>;
    if constexpr (D::kParts == Floats<kCount>::kParts) {
        return partwise<D>([](auto x) { return widened<typename D::Part>(x); }, a);
#if defined __x86_64__ && !defined TARN_GENERIC
    } else if constexpr (kCount == 4) {
        return {{widened<typename D::Part>(a.part[0]), widened<typename D::Part>(_mm_movehl_ps(a.part[0], a.part[0]))}};
#endif
    } else {
        return joined(toDouble(lowHalf(a)), toDouble(highHalf(a)));
    }
}

/// Converts two integers.
[[gnu::always_inline]] inline Doubles<2> loadAsDoubles(const std::int32_t* values) noexcept
{
#if defined __x86_64__ && !defined TARN_GENERIC
    return {{_mm_cvtepi32_pd(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(values)))}};
#else
    return {{Doubles<2>::Part{static_cast<double>(values[0]), static_cast<double>(values[1])}}};
#endif
}

/// Rounds to nearest.
template <int kCount>
[[gnu::always_inline]] inline Floats<kCount> toFloat(const Doubles<kCount>& a) noexcept
{
    using F = Floats<kCount>;
    if constexpr (Doubles<kCount>::kParts == F::kParts) {
        return partwise<F>([](auto x) { return __builtin_convertvector(x, typename F::Part); }, a);
#if defined __x86_64__ && !defined TARN_GENERIC
    } else if constexpr (kCount == 4) {
        return {{_mm_movelh_ps(_mm_cvtpd_ps(a.part[0]), _mm_cvtpd_ps(a.part[1]))}};
#endif
    } else {
        return joined(toFloat(lowHalf(a)), toFloat(highHalf(a)));
    }
}

/// Rounds one part to single and converts it back to double.
template <typename Double>
[[gnu::always_inline]] inline Double roundedToSingle(Double a) noexcept
{
#if defined __x86_64__ && !defined TARN_GENERIC
    if constexpr (sizeof(Double) == 16) return _mm_cvtps_pd(_mm_cvtpd_ps(a));
#endif
    // A using declaration cannot have the attribute. NOLINTNEXTLINE(modernize-use-using)
    typedef float Single __attribute__((vector_size(sizeof(Double) / 2)));
    return widened<Double>(__builtin_convertvector(a, Single));
}

// --- Reductions ----------------------------------------------------------------------------------------------------

#if defined __x86_64__ && !defined TARN_GENERIC
/// One bit for every lane of one part of a mask of Integer, lane 0 lowest.
template <typename Integer, typename Part>
[[gnu::always_inline]] inline std::uint32_t maskBits(Part mask) noexcept
{
    constexpr bool kWide = sizeof(Integer) == 8;
    int bits = 0;
    if constexpr (sizeof(Part) == 16 && kWide) bits = _mm_movemask_pd(reinterpret_cast<__m128d>(mask));
    if constexpr (sizeof(Part) == 16 && !kWide) bits = _mm_movemask_ps(reinterpret_cast<__m128>(mask));
#if defined __AVX__
    if constexpr (sizeof(Part) == 32 && kWide) bits = _mm256_movemask_pd(reinterpret_cast<__m256d>(mask));
    if constexpr (sizeof(Part) == 32 && !kWide) bits = _mm256_movemask_ps(reinterpret_cast<__m256>(mask));
#endif
#if defined __AVX512F__
    if constexpr (sizeof(Part) == 64 && kWide) bits = _mm512_movepi64_mask(reinterpret_cast<__m512i>(mask));
    if constexpr (sizeof(Part) == 64 && !kWide) bits = _mm512_movepi32_mask(reinterpret_cast<__m512i>(mask));
#endif
    return static_cast<std::uint32_t>(bits);
}
#endif

/// Whether any lane of a mask is true. Not for other integers: on x86-64 only the sign of a lane counts.
template <typename Integer, int kCount>
[[gnu::always_inline]] inline bool any(const Lanes<Integer, kCount>& mask) noexcept
{
    if constexpr (Lanes<Integer, kCount>::kParts > 1) {
        return any(lowHalf(mask) | highHalf(mask));
    } else {
#if defined __x86_64__ && !defined TARN_GENERIC
        return maskBits<Integer>(mask.part[0]) != 0;
#else
        using Pair [[gnu::vector_size(16)]] = std::int64_t;
        const Pair pair = reinterpret_cast<Pair>(mask.part[0]);
        return (pair[0] | pair[1]) != 0;
#endif
    }
}

/// The index of the first true lane of a mask, which must have one.
template <typename Integer, int kCount>
[[gnu::always_inline]] inline int firstTrue(const Lanes<Integer, kCount>& mask) noexcept
{
    using M = Lanes<Integer, kCount>;
#if defined __x86_64__ && !defined TARN_GENERIC
    static_assert(kCount <= 64);
    std::uint64_t bits = 0;
    for (int p = 0; p < M::kParts; ++p) bits |= std::uint64_t{maskBits<Integer>(mask.part[p])} << (p * M::kWidth);
    return __builtin_ctzll(bits);
#else
    int first = 0;
    while (mask.part[first / M::kWidth][first % M::kWidth] == 0) ++first;
    return first;
#endif
}

/// The largest of all lanes, none of which may be NaN.
template <int kCount>
[[gnu::always_inline]] inline float largestLane(const Floats<kCount>& a) noexcept
{
    if constexpr (kCount > 4) {
        return largestLane(larger(lowHalf(a), highHalf(a)));
    } else {
        using Part = typename Floats<4>::Part;
        const Floats<4> pairs = larger(a, Floats<4>{{shuffled<Part>(a.part[0], a.part[0], Steps<4, 2, 1>{})}});
        return larger(pairs, Floats<4>{{shuffled<Part>(pairs.part[0], pairs.part[0], Steps<4, 1, 1>{})}}).part[0][0];
    }
}

/// The sum of all lanes in unspecified order, for terms whose sums are exact.
template <typename T, int kCount>
[[gnu::always_inline]] inline T anyOrderSum(const Lanes<T, kCount>& a) noexcept
{
    if constexpr (kCount == 2) {
        return a.part[0][0] + a.part[0][1];
    } else {
        return anyOrderSum(lowHalf(a) + highHalf(a));
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
