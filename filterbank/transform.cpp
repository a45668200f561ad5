#include "filterbank/transform.h"

#include "filterbank/transform_tables.h"
#include "lanes/gradual.h"
#include "lanes/lanes.h"

#include <cstddef>
#include <type_traits>

// The recursion of filterbank/cos_mod_dct4.cpp and filterbank/dct_kernels.cpp, which show it one value at a time, down
// to products with 8 x 8 matrices. A vector of a transform is cut by index modulo its number of octets, so that entry j
// of octet s is x[n / 8 * j + s]; then all sums of neighbours are sums of octets, or of an octet and one moved up by a
// lane. Outputs come as octets of eight neighbours, every second one backwards, because halves are recombined on the
// outputs i and n - 1 - i: octet c of the first half becomes the octets c and n / 8 - 1 - c.

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

// Eight values each of one or two transforms, or gradual ones of one: the types that stand for Octet below.
using One = Floats<8>;
using Two = Floats<16>;
using GradualOne = Gradual<8>;

template <int kIndex, int... kLane>
constexpr auto octetwise(std::integer_sequence<int, kLane...>)
{
    return std::integer_sequence<int, (kLane / 8 * 8 + kIndex)...>{};
}

/// Indices that give every lane the value kIndex of its octet.
template <int kWidth, int kIndex>
using Spread = decltype(octetwise<kIndex>(std::make_integer_sequence<int, kWidth>{}));

/// The same eight values for every transform.
template <typename Octet>
[[gnu::always_inline]] inline Octet repeated(const float (&values)[8]) noexcept
{
    const Floats<8> octet = load<8>(values);
    if constexpr (std::is_same_v<Octet, Two>) {
        return joined(octet, octet);
    } else {
        return valuesOf<std::is_same_v<Octet, GradualOne>>(octet);
    }
}

/// Every transform's octet one lane up, with minus zero, the neutral element of addition, as its first value.
[[gnu::always_inline]] inline One movedUp(const One& a) noexcept
{
    return shiftedUp(-0.0f, a);
}

[[gnu::always_inline, maybe_unused]] inline Two movedUp(const Two& a) noexcept
{
    return joined(movedUp(lowHalf(a)), movedUp(highHalf(a)));
}

[[gnu::always_inline]] inline GradualOne movedUp(const GradualOne& a) noexcept
{
    return {shiftedUp(-0.0, a.doubles)};
}

template <int kIndex, typename L, int... kPart>
[[gnu::always_inline]] inline L spreadParts(const L& a, std::integer_sequence<int, kPart...> /*parts*/) noexcept
{
    constexpr int kWidth = L::kWidth;
    return {
        {shuffled<typename L::Part>(a.part[kWidth == 4 ? kIndex / 4 : kPart], a.part[kWidth == 4 ? kIndex / 4 : kPart],
                                    Spread<kWidth, kIndex % kWidth>{})...}};
}

/// One value of every transform's octet in all eight lanes.
template <int kIndex>
[[gnu::always_inline]] inline Two spread(const Two& a) noexcept
{
    return spreadParts<kIndex>(a, Two::Parts{});
}

/// A vector of kOctets octets cut by index modulo kOctets.
template <typename Octet, std::size_t kOctets>
struct Cut
{
    Octet octet[kOctets];
};

template <typename Octet>
[[gnu::always_inline]] inline Cut<Octet, 4> cutByFour(const float (*vectors)[32]) noexcept
{
    constexpr bool kGradual = std::is_same_v<Octet, GradualOne>;
    constexpr int kLanes = std::is_same_v<Octet, Two> ? 16 : 8;
    const LanePair<float, 2 * kLanes> halves = deinterleaved(load<4 * kLanes>(&vectors[0][0]));
    const LanePair<float, kLanes> even = deinterleaved(halves.even);
    const LanePair<float, kLanes> odd = deinterleaved(halves.odd);
    return {{valuesOf<kGradual>(even.even), valuesOf<kGradual>(odd.even), valuesOf<kGradual>(even.odd),
             valuesOf<kGradual>(odd.odd)}};
}

// Products take single values of vectors: from the register of two transforms, of one alone faster from memory.

template <typename Octet>
using Stored = std::conditional_t<std::is_same_v<Octet, GradualOne>, double, float>;

[[gnu::always_inline]] inline void storeValues(float (&stored)[8], const One& vector) noexcept
{
    store(stored, vector);
}

[[gnu::always_inline, maybe_unused]] inline void storeValues(float (&)[8], const Two&) noexcept {}

[[gnu::always_inline]] inline void storeValues(double (&stored)[8], const GradualOne& vector) noexcept
{
    store(stored, vector.doubles);
}

template <int kColumn>
[[gnu::always_inline]] inline One spreadFrom(const One& /*vector*/, const float (&stored)[8]) noexcept
{
    return broadcast<8>(stored[kColumn]);
}

template <int kColumn>
[[gnu::always_inline]] inline Two spreadFrom(const Two& vector, const float (&)[8]) noexcept
{
    return spread<kColumn>(vector);
}

template <int kColumn>
[[gnu::always_inline]] inline GradualOne spreadFrom(const GradualOne& /*vector*/, const double (&stored)[8]) noexcept
{
    return {broadcast<8>(stored[kColumn])};
}

/// Adds column kColumn of a product of one matrix with several vectors, the outputs of a product in lanes.
template <int kColumn, typename Octet, std::size_t kVectors>
[[gnu::always_inline]] inline void addColumn(const float (&columns)[8][8], const Octet (&vectors)[kVectors],
                                             const Stored<Octet> (&stored)[kVectors][8],
                                             Octet (&products)[kVectors]) noexcept
{
    const auto column = repeated<Octet>(columns[kColumn]);
#pragma GCC unroll 8
    for (std::size_t v = 0; v < kVectors; ++v) {
        const Octet term = spreadFrom<kColumn>(vectors[v], stored[v]) * column;
        products[v] = kColumn == 0 ? term : products[v] + term;
    }
}

/// Products of one matrix with several vectors; every sum begins with its first product, columns ascending.
template <typename Octet, std::size_t kVectors, int... kColumn>
[[gnu::always_inline]] inline void multiply(const float (&columns)[8][8], const Octet (&vectors)[kVectors],
                                            Octet (&products)[kVectors],
                                            std::integer_sequence<int, kColumn...> /*all*/) noexcept
{
    alignas(kVectorBytes) Stored<Octet> stored[kVectors][8];
    for (std::size_t v = 0; v < kVectors; ++v) storeValues(stored[v], vectors[v]);
    (addColumn<kColumn>(columns, vectors, stored, products), ...);
}

/// A DCT-III of 16 from the products of its halves.
template <typename Octet>
[[gnu::always_inline]] inline Cut<Octet, 2> joinDct3Of16(const Octet& even, const Octet& odd) noexcept
{
    const Octet scaled = odd * repeated<Octet>(transformTables.dct3Scale16);
    return {{even + scaled, even - scaled}};
}

/// A DCT-IV of 16 from the products of its halves.
template <typename Octet>
[[gnu::always_inline]] inline Cut<Octet, 2> joinDct4Of16(const Octet& a, const Octet& b) noexcept
{
    return {{repeated<Octet>(transformTables.dct4Scale16[0]) * (a + b),
             repeated<Octet>(transformTables.dct4Scale16[1]) * (a - b)}};
}

template <typename Octet>
[[gnu::always_inline]] inline Cut<Octet, 4> joinDct3Of32(const Cut<Octet, 2>& even, const Cut<Octet, 2>& odd) noexcept
{
    Cut<Octet, 4> out;
    for (int c = 0; c < 2; ++c) {
        const Octet scaled = odd.octet[c] * repeated<Octet>(transformTables.dct3Scale32[c]);
        out.octet[c] = even.octet[c] + scaled;
        out.octet[3 - c] = even.octet[c] - scaled;
    }
    return out;
}

template <typename Octet>
[[gnu::always_inline]] inline Cut<Octet, 4> joinDct4Of32(const Cut<Octet, 2>& a, const Cut<Octet, 2>& b) noexcept
{
    Cut<Octet, 4> out;
    for (int c = 0; c < 2; ++c) {
        const auto upper = repeated<Octet>(transformTables.dct4Scale32[0][c]);
        const auto lower = repeated<Octet>(transformTables.dct4Scale32[1][c]);
        out.octet[c] = upper * (a.octet[c] + b.octet[c]);
        out.octet[3 - c] = lower * (a.octet[c] - b.octet[c]);
    }
    return out;
}

/// Stores one octet of outputs of every transform; those of odd index run backwards.
template <int kStride>
[[gnu::always_inline]] inline void storeOctet(int c, const One& octet, float* out) noexcept
{
    store(out + 8 * c, c % 2 == 0 ? octet : reversed(octet));
}

template <int kStride>
[[gnu::always_inline]] inline void storeOctet(int c, const Two& octet, float* out) noexcept
{
    storeOctet<kStride>(c, lowHalf(octet), out);
    storeOctet<kStride>(c, highHalf(octet), out + kStride);
}

template <int kStride>
[[gnu::always_inline]] inline void storeOctet(int c, const GradualOne& octet, float* out) noexcept
{
    storeOctet<kStride>(c, singlesOf(octet), out);
}

template <typename Octet, int kStride>
[[gnu::always_inline]] inline void transformTogether(const float (*even)[32], const float (*odd)[32],
                                                     float* out) noexcept
{
    const Cut<Octet, 4> e = cutByFour<Octet>(even);
    const Cut<Octet, 4> o = cutByFour<Octet>(odd);

    // DCT4_2 of the pair sums: u goes through a DCT-IV of 16, v through a DCT-III.
    const Octet u[2] = {e.octet[0] + e.octet[1], e.octet[2] + e.octet[3]};
    const Octet v[2] = {movedUp(e.octet[3]) + e.octet[0], e.octet[1] + e.octet[2]};
    // DCT2_2_X of the shifted pair sums: their even entries and the sums of odd neighbours, both through a DCT-III.
    const Octet p[2] = {o.octet[0], o.octet[2]};
    const Octet q[2] = {o.octet[1] + movedUp(o.octet[3]), o.octet[3] + o.octet[1]};

    const Octet dct4Input[1] = {u[0] + u[1]};
    const Octet dct3Input[7] = {u[0] + movedUp(u[1]), v[0], v[1] + movedUp(v[1]), p[0],
                                p[1] + movedUp(p[1]), q[0], q[1] + movedUp(q[1])};
    constexpr std::make_integer_sequence<int, 8> kAllColumns{};
    Octet dct4[1];
    Octet dct3[7];
    multiply(transformTables.dct4Columns, dct4Input, dct4, kAllColumns);
    multiply(transformTables.dct3Columns, dct3Input, dct3, kAllColumns);

    const Cut<Octet, 4> a = joinDct4Of32(joinDct4Of16(dct4[0], dct3[0]), joinDct3Of16(dct3[1], dct3[2]));
    const Cut<Octet, 4> b = joinDct3Of32(joinDct3Of16(dct3[3], dct3[4]), joinDct3Of16(dct3[5], dct3[6]));
    for (int c = 0; c < 4; ++c) {
        const auto upper = repeated<Octet>(transformTables.dct4Scale64[0][c]);
        const auto lower = repeated<Octet>(transformTables.dct4Scale64[1][c]);
        storeOctet<kStride>(c, upper * (a.octet[c] + b.octet[c]), out);
        storeOctet<kStride>(7 - c, lower * (a.octet[c] - b.octet[c]), out);
    }
}

} // namespace

template <int kCount, int kStride>
void transformPairSums(const float (*even)[32], const float (*odd)[32], float* out, bool tiny) noexcept
{
    if (tiny) {
        for (int t = 0; t < kCount; ++t) {
            if (anyNearUnderflow(even[t]) || anyNearUnderflow(odd[t])) {
                transformTogether<GradualOne, kStride>(even + t, odd + t, out + t * kStride);
            } else {
                transformTogether<One, kStride>(even + t, odd + t, out + t * kStride);
            }
        }
        return;
    }

    // Two transforms fill the widest vectors; narrower ones are full with one.
    constexpr int kTogether = kVectorFloats / 8 == 2 ? 2 : 1;
    using Together = std::conditional_t<kTogether == 2, Two, One>;
    int t = 0;
    for (; t + kTogether <= kCount; t += kTogether)
        transformTogether<Together, kStride>(even + t, odd + t, out + t * kStride);
    if constexpr (kCount % kTogether != 0) transformTogether<One, kStride>(even + t, odd + t, out + t * kStride);
}

template void transformPairSums<2, 64>(const float (*)[32], const float (*)[32], float*, bool) noexcept;
template void transformPairSums<3, 1024>(const float (*)[32], const float (*)[32], float*, bool) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
