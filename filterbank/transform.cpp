// The 64-point DCT-IV with vectors, from pair sums.
// SPDX-License-Identifier: MIT
#include "filterbank/transform.h"

#include "filterbank/transform_tables.h"
#include "lanes/lanes.h"
#include "lanes/subnormal_safe.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

// The same recursion as in filterbank/cos_mod_dct4.cpp and filterbank/dct_kernels.cpp, down to products with 8 x 8
// matrices. A vector of n values is stored as n / 8 octets: entry j of octet s is x[n / 8 * j + s]. Sums of neighbours
// are then sums of two octets, one of them shifted up by a lane where needed. Outputs are octets of eight neighbours.
// Combining two halves gives the outputs i and n - 1 - i, so octet c of the halves gives the octets c and n / 8 - 1 -
// c, and every second octet is reversed.

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

// The types of the template parameter Octet: eight values of one transform, eight values of each of two transforms, and
// eight values of one transform in subnormal-safe arithmetic.
using OneOctet = Floats<8>;
using TwoOctets = Floats<16>;
using SafeOctet = SubnormalSafe<8>;

template <int kIndex, int... kLane>
constexpr auto octetIndices(std::integer_sequence<int, kLane...>)
{
    return std::integer_sequence<int, (kLane / 8 * 8 + kIndex)...>{};
}

/// Indices that give every lane the value kIndex of its octet.
template <int kWidth, int kIndex>
using CopyIndices = decltype(octetIndices<kIndex>(std::make_integer_sequence<int, kWidth>{}));

/// The same eight values in the octet of every transform.
template <typename Octet>
[[gnu::always_inline]] inline Octet inEveryOctet(const float (&values)[8]) noexcept
{
    if constexpr (std::is_same_v<Octet, TwoOctets>) {
        return loadTwice(values);
    } else {
        return valuesOf<std::is_same_v<Octet, SafeOctet>>(load<8>(values));
    }
}

/// Shifts the octet of every transform up by one lane. Lane 0 becomes minus zero, the neutral element of addition.
[[gnu::always_inline]] inline OneOctet octetShiftedUp(const OneOctet& a) noexcept
{
    return shiftedUp(-0.0f, a);
}

/// Indices that shift every octet up; those of the freed lanes are the first lane of the second vector.
template <int... kLane>
constexpr auto shiftedUpIndices(std::integer_sequence<int, kLane...>)
{
    return std::integer_sequence<int, (kLane % 8 == 0 ? int{sizeof...(kLane)} : kLane - 1)...>{};
}

[[gnu::always_inline, maybe_unused]] inline TwoOctets octetShiftedUp(const TwoOctets& a) noexcept
{
    if constexpr (TwoOctets::kParts == 1) {
        using Indices = decltype(shiftedUpIndices(std::make_integer_sequence<int, 16>{}));
        return {{shuffled<TwoOctets::Part>(a.part[0], broadcast<16>(-0.0f).part[0], Indices{})}};
    } else {
        return joined(octetShiftedUp(lowHalf(a)), octetShiftedUp(highHalf(a)));
    }
}

[[gnu::always_inline]] inline SafeOctet octetShiftedUp(const SafeOctet& a) noexcept
{
    return {shiftedUp(-0.0, a.doubles)};
}

template <int... kLane>
constexpr auto reversedIndices(std::integer_sequence<int, kLane...>)
{
    return std::integer_sequence<int, (kLane / 8 * 8 + 7 - kLane % 8)...>{};
}

/// Reverses the octet of every transform.
[[gnu::always_inline, maybe_unused]] inline TwoOctets octetReversed(const TwoOctets& a) noexcept
{
    if constexpr (TwoOctets::kParts == 1) {
        using Indices = decltype(reversedIndices(std::make_integer_sequence<int, 16>{}));
        return {{shuffled<TwoOctets::Part>(a.part[0], a.part[0], Indices{})}};
    } else {
        return joined(reversed(lowHalf(a)), reversed(highHalf(a)));
    }
}

/// Copies one value of every octet to all eight lanes of that octet.
template <int kIndex>
[[gnu::always_inline]] inline TwoOctets copyToOctet(const TwoOctets& a) noexcept
{
    using Indices = CopyIndices<16, kIndex>;
    return {{shuffled<TwoOctets::Part>(a.part[0], a.part[0], Indices{})}};
}

/// A vector stored as kOctets octets.
template <typename Octet, std::size_t kOctets>
struct Octets
{
    Octet octet[kOctets];
};

template <typename Octet>
[[gnu::always_inline]] inline Octets<Octet, 4> splitIntoOctets(const float (*vectors)[32]) noexcept
{
    constexpr bool kSubnormalSafe = std::is_same_v<Octet, SafeOctet>;
#if defined __AVX2__
    if constexpr (!std::is_same_v<Octet, TwoOctets>) {
        // Quad k of both halves of the vector: no instruction moves values between the halves of a register.
        const auto quads = [&](int k) { return joined(load<4>(vectors[0] + 4 * k), load<4>(vectors[0] + 16 + 4 * k)); };
        const Quads<8> octets = transposedQuads(quads(0), quads(1), quads(2), quads(3));
        return {{valuesOf<kSubnormalSafe>(octets.column[0]), valuesOf<kSubnormalSafe>(octets.column[1]),
                 valuesOf<kSubnormalSafe>(octets.column[2]), valuesOf<kSubnormalSafe>(octets.column[3])}};
    }
#endif
    constexpr int kLanes = std::is_same_v<Octet, TwoOctets> ? 16 : 8;
    const LanePair<float, 2 * kLanes> halves = deinterleaved(load<4 * kLanes>(&vectors[0][0]));
    const LanePair<float, kLanes> even = deinterleaved(halves.even);
    const LanePair<float, kLanes> odd = deinterleaved(halves.odd);
    return {{valuesOf<kSubnormalSafe>(even.even), valuesOf<kSubnormalSafe>(odd.even),
             valuesOf<kSubnormalSafe>(even.odd), valuesOf<kSubnormalSafe>(odd.odd)}};
}

// A product needs single values of a vector in all lanes. For one octet, loading them from memory is faster than a
// permutation; for two octets, the permutation is.

template <typename Octet>
using Stored = std::conditional_t<std::is_same_v<Octet, SafeOctet>, double, float>;

[[gnu::always_inline]] inline void storeValues(float (&stored)[8], const OneOctet& vector) noexcept
{
    store(stored, vector);
}

[[gnu::always_inline, maybe_unused]] inline void storeValues(float (&)[8], const TwoOctets&) noexcept {}

[[gnu::always_inline]] inline void storeValues(double (&stored)[8], const SafeOctet& vector) noexcept
{
    store(stored, vector.doubles);
}

template <int kColumn>
[[gnu::always_inline]] inline OneOctet valueInAllLanes(const OneOctet& /*vector*/, const float (&stored)[8]) noexcept
{
    return broadcast<8>(stored[kColumn]);
}

template <int kColumn>
[[gnu::always_inline]] inline TwoOctets valueInAllLanes(const TwoOctets& vector, const float (&)[8]) noexcept
{
    return copyToOctet<kColumn>(vector);
}

template <int kColumn>
[[gnu::always_inline]] inline SafeOctet valueInAllLanes(const SafeOctet& /*vector*/, const double (&stored)[8]) noexcept
{
    return {broadcast<8>(stored[kColumn])};
}

/// Adds column kColumn to the products of one matrix with several vectors; lanes are outputs.
template <int kColumn, typename Octet, std::size_t kVectors>
[[gnu::always_inline]] inline void addColumn(const float (&columns)[8][8], const Octet (&vectors)[kVectors],
                                             const Stored<Octet> (*stored)[8], Octet (&products)[kVectors]) noexcept
{
    const auto column = inEveryOctet<Octet>(columns[kColumn]);
#pragma GCC unroll 8
    for (std::size_t v = 0; v < kVectors; ++v) {
        const Octet term = valueInAllLanes<kColumn>(vectors[v], stored[v]) * column;
        products[v] = kColumn == 0 ? term : products[v] + term;
    }
}

/// Products of one matrix with several vectors; every sum starts with its first product, columns ascending.
template <typename Octet, std::size_t kVectors, int... kColumn>
[[gnu::always_inline]] inline void multiply(const float (&columns)[8][8], const Octet (&vectors)[kVectors],
                                            Octet (&products)[kVectors],
                                            std::integer_sequence<int, kColumn...> /*all*/) noexcept
{
    alignas(kVectorBytes) Stored<Octet> stored[kVectors][8];
#pragma GCC unroll 8
    for (std::size_t v = 0; v < kVectors; ++v) storeValues(stored[v], vectors[v]);
    const auto* const values = inMemory(stored);
    (addColumn<kColumn>(columns, vectors, values, products), ...);
}

/// Combines the products of both halves to a DCT-III of size 16.
template <typename Octet>
[[gnu::always_inline]] inline Octets<Octet, 2> combineDct3Of16(const Octet& even, const Octet& odd) noexcept
{
    const Octet scaled = odd * inEveryOctet<Octet>(transformTables.dct3Scale16);
    return {{even + scaled, even - scaled}};
}

/// Combines the products of both halves to a DCT-IV of size 16.
template <typename Octet>
[[gnu::always_inline]] inline Octets<Octet, 2> combineDct4Of16(const Octet& a, const Octet& b) noexcept
{
    return {{inEveryOctet<Octet>(transformTables.dct4Scale16[0]) * (a + b),
             inEveryOctet<Octet>(transformTables.dct4Scale16[1]) * (a - b)}};
}

template <typename Octet>
[[gnu::always_inline]] inline Octets<Octet, 4> combineDct3Of32(const Octets<Octet, 2>& even,
                                                               const Octets<Octet, 2>& odd) noexcept
{
    Octets<Octet, 4> out;
    for (int c = 0; c < 2; ++c) {
        const Octet scaled = odd.octet[c] * inEveryOctet<Octet>(transformTables.dct3Scale32[c]);
        out.octet[c] = even.octet[c] + scaled;
        out.octet[3 - c] = even.octet[c] - scaled;
    }
    return out;
}

template <typename Octet>
[[gnu::always_inline]] inline Octets<Octet, 4> combineDct4Of32(const Octets<Octet, 2>& a,
                                                               const Octets<Octet, 2>& b) noexcept
{
    Octets<Octet, 4> out;
    for (int c = 0; c < 2; ++c) {
        const auto upper = inEveryOctet<Octet>(transformTables.dct4Scale32[0][c]);
        const auto lower = inEveryOctet<Octet>(transformTables.dct4Scale32[1][c]);
        out.octet[c] = upper * (a.octet[c] + b.octet[c]);
        out.octet[3 - c] = lower * (a.octet[c] - b.octet[c]);
    }
    return out;
}

/// Stores one octet of outputs of every transform; octets of odd index are reversed.
[[gnu::always_inline]] inline void storeOctet(int c, const OneOctet& octet, float* out,
                                              std::ptrdiff_t /*stride*/) noexcept
{
    store(out + 8 * c, c % 2 == 0 ? octet : reversed(octet));
}

[[gnu::always_inline, maybe_unused]] inline void storeOctet(int c, const TwoOctets& octet, float* out,
                                                            std::ptrdiff_t stride) noexcept
{
    const TwoOctets inOrder = c % 2 == 0 ? octet : octetReversed(octet);
    store(out + 8 * c, lowHalf(inOrder));
    store(out + stride + 8 * c, highHalf(inOrder));
}

[[gnu::always_inline]] inline void storeOctet(int c, const SafeOctet& octet, float* out, std::ptrdiff_t stride) noexcept
{
    storeOctet(c, singlesOf(octet), out, stride);
}

template <typename Octet>
[[gnu::noinline]] void transformTogether(const float (*even)[32], const float (*odd)[32], float* out,
                                         std::ptrdiff_t stride) noexcept
{
    const Octets<Octet, 4> e = splitIntoOctets<Octet>(even);
    const Octets<Octet, 4> o = splitIntoOctets<Octet>(odd);

    // DCT4_2 of the pair sums: u is the input of a DCT-IV of size 16, v of a DCT-III.
    const Octet u[2] = {e.octet[0] + e.octet[1], e.octet[2] + e.octet[3]};
    const Octet v[2] = {octetShiftedUp(e.octet[3]) + e.octet[0], e.octet[1] + e.octet[2]};
    // DCT2_2_X of the shifted pair sums: p, their even entries, and q, sums of odd neighbours, are inputs of DCT-IIIs.
    const Octet p[2] = {o.octet[0], o.octet[2]};
    const Octet q[2] = {o.octet[1] + octetShiftedUp(o.octet[3]), o.octet[3] + o.octet[1]};

    const Octet dct4Input[1] = {u[0] + u[1]};
    const Octet dct3Input[7] = {u[0] + octetShiftedUp(u[1]), v[0], v[1] + octetShiftedUp(v[1]), p[0],
                                p[1] + octetShiftedUp(p[1]), q[0], q[1] + octetShiftedUp(q[1])};
    constexpr std::make_integer_sequence<int, 8> kAllColumns{};
    Octet dct4[1];
    Octet dct3[7];
    multiply(transformTables.dct4Columns, dct4Input, dct4, kAllColumns);
    multiply(transformTables.dct3Columns, dct3Input, dct3, kAllColumns);

    const Octets<Octet, 4> a = combineDct4Of32(combineDct4Of16(dct4[0], dct3[0]), combineDct3Of16(dct3[1], dct3[2]));
    const Octets<Octet, 4> b = combineDct3Of32(combineDct3Of16(dct3[3], dct3[4]), combineDct3Of16(dct3[5], dct3[6]));
    for (int c = 0; c < 4; ++c) {
        const auto upper = inEveryOctet<Octet>(transformTables.dct4Scale64[0][c]);
        const auto lower = inEveryOctet<Octet>(transformTables.dct4Scale64[1][c]);
        storeOctet(c, upper * (a.octet[c] + b.octet[c]), out, stride);
        storeOctet(7 - c, lower * (a.octet[c] - b.octet[c]), out, stride);
    }
}

} // namespace

void transformPairSums(int count, const float (*even)[32], const float (*odd)[32], float* out, std::ptrdiff_t stride,
                       std::uint32_t slow) noexcept
{
    for (int together = 1; count > 0; count -= together) {
        // Two transforms fill the widest vectors; one fills the narrower ones.
        together = kVectorFloats == 16 && count > 1 && (slow & 3) == 0 ? 2 : 1;
        if (together == 2) {
            if constexpr (kVectorFloats == 16) transformTogether<TwoOctets>(even, odd, out, stride);
        } else if ((slow & 1) != 0) {
            transformTogether<SafeOctet>(even, odd, out, stride);
        } else {
            transformTogether<OneOctet>(even, odd, out, stride);
        }
        even += together;
        odd += together;
        out += together * stride;
        slow >>= together;
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
