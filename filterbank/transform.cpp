#include "filterbank/transform.h"

#include "filterbank/transform_tables.h"
#include "lanes/gradual.h"
#include "lanes/lanes.h"

#include <cstddef>

// The recursion of filterbank/cos_mod_dct4.cpp and filterbank/dct_kernels.cpp, which show it one value at a time, down
// to products with 8 x 8 matrices. A vector of a transform is cut by index modulo its number of octets, so that entry j
// of octet s is x[n / 8 * j + s]; then all sums of neighbours are sums of octets, or of an octet and one moved up by a
// lane. Outputs come as octets of eight neighbours, every second one backwards, because halves are recombined on the
// outputs i and n - 1 - i: octet c of the first half becomes the octets c and n / 8 - 1 - c.

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// Eight values each of kCount transforms.
template <int kCount>
using Octets = Floats<8 * kCount>;

template <int kIndex, int... kLane>
constexpr auto octetwise(std::integer_sequence<int, kLane...>)
{
    return std::integer_sequence<int, (kLane / 8 * 8 + kIndex)...>{};
}

/// Indices that give every lane the value kIndex of its octet.
template <int kWidth, int kIndex>
using Spread = decltype(octetwise<kIndex>(std::make_integer_sequence<int, kWidth>{}));

/// The same eight values for every transform.
template <int kCount>
[[gnu::always_inline]] inline Octets<kCount> repeated(const float (&values)[8]) noexcept
{
    const Floats<8> octet = load<8>(values);
    if constexpr (kCount == 1) {
        return octet;
    } else {
        static_assert(kCount == 2);
        return joined(octet, octet);
    }
}

/// Every transform's octet one lane up, with minus zero, the neutral element of addition, as its first value.
template <int kCount>
[[gnu::always_inline]] inline Octets<kCount> movedUp(const Octets<kCount>& a) noexcept
{
    if constexpr (kCount == 1) {
        return shiftedUp(-0.0f, a);
    } else {
        static_assert(kCount == 2);
        return joined(shiftedUp(-0.0f, lowHalf(a)), shiftedUp(-0.0f, highHalf(a)));
    }
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
template <int kIndex, int kCount>
[[gnu::always_inline]] inline Octets<kCount> spread(const Octets<kCount>& a) noexcept
{
    return spreadParts<kIndex>(a, typename Octets<kCount>::Parts{});
}

/// A vector of kOctets octets cut by index modulo kOctets.
template <int kCount, std::size_t kOctets>
struct Cut
{
    Octets<kCount> octet[kOctets];
};

template <int kCount>
[[gnu::always_inline]] inline Cut<kCount, 4> cutByFour(const float (*vectors)[32]) noexcept
{
    const LanePair<float, 16 * kCount> halves = deinterleaved(load<32 * kCount>(&vectors[0][0]));
    const LanePair<float, 8 * kCount> even = deinterleaved(halves.even);
    const LanePair<float, 8 * kCount> odd = deinterleaved(halves.odd);
    return {{even.even, odd.even, even.odd, odd.odd}};
}

/// Vectors of one transform, from which products take single values: two transforms in one vector from the
/// register, one alone faster from memory.
template <int kColumn, int kCount>
[[gnu::always_inline]] inline Octets<kCount> spreadFrom(const Octets<kCount>& vector, const float* stored) noexcept
{
    if constexpr (kCount == 1) {
        return broadcast<8>(stored[kColumn]);
    } else {
        return spread<kColumn, kCount>(vector);
    }
}

/// Adds column kColumn of a product of one matrix with several vectors, the outputs of a product in lanes.
template <bool kGradual, int kColumn, int kCount, std::size_t kVectors>
[[gnu::always_inline]] inline void addColumn(const float (&columns)[8][8], const Octets<kCount> (&vectors)[kVectors],
                                             const float (*stored)[8], Octets<kCount> (&products)[kVectors]) noexcept
{
    const Octets<kCount> column = repeated<kCount>(columns[kColumn]);
#pragma GCC unroll 8
    for (std::size_t v = 0; v < kVectors; ++v) {
        const Octets<kCount> term = product<kGradual>(spreadFrom<kColumn, kCount>(vectors[v], stored[v]), column);
        products[v] = kColumn == 0 ? term : products[v] + term;
    }
}

/// Products of one matrix with several vectors; every sum begins with its first product, columns ascending.
template <bool kGradual, int kCount, std::size_t kVectors, int... kColumn>
[[gnu::always_inline]] inline void multiply(const float (&columns)[8][8], const Octets<kCount> (&vectors)[kVectors],
                                            Octets<kCount> (&products)[kVectors],
                                            std::integer_sequence<int, kColumn...> /*all*/) noexcept
{
    alignas(kVectorBytes) float stored[kVectors][8];
    if constexpr (kCount == 1)
        for (std::size_t v = 0; v < kVectors; ++v) store(stored[v], vectors[v]);
    (addColumn<kGradual, kColumn, kCount>(columns, vectors, stored, products), ...);
}

/// A DCT-III of 16 from the products of its halves.
template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Cut<kCount, 2> joinDct3Of16(const Octets<kCount>& even,
                                                          const Octets<kCount>& odd) noexcept
{
    const Octets<kCount> scaled = product<kGradual>(odd, repeated<kCount>(transformTables.dct3Scale16));
    return {{even + scaled, even - scaled}};
}

/// A DCT-IV of 16 from the products of its halves.
template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Cut<kCount, 2> joinDct4Of16(const Octets<kCount>& a, const Octets<kCount>& b) noexcept
{
    return {{product<kGradual>(repeated<kCount>(transformTables.dct4Scale16[0]), a + b),
             product<kGradual>(repeated<kCount>(transformTables.dct4Scale16[1]), a - b)}};
}

template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Cut<kCount, 4> joinDct3Of32(const Cut<kCount, 2>& even,
                                                          const Cut<kCount, 2>& odd) noexcept
{
    Cut<kCount, 4> out;
    for (int c = 0; c < 2; ++c) {
        const Octets<kCount> scaled = product<kGradual>(odd.octet[c], repeated<kCount>(transformTables.dct3Scale32[c]));
        out.octet[c] = even.octet[c] + scaled;
        out.octet[3 - c] = even.octet[c] - scaled;
    }
    return out;
}

template <bool kGradual, int kCount>
[[gnu::always_inline]] inline Cut<kCount, 4> joinDct4Of32(const Cut<kCount, 2>& a, const Cut<kCount, 2>& b) noexcept
{
    Cut<kCount, 4> out;
    for (int c = 0; c < 2; ++c) {
        const Octets<kCount> upper = repeated<kCount>(transformTables.dct4Scale32[0][c]);
        const Octets<kCount> lower = repeated<kCount>(transformTables.dct4Scale32[1][c]);
        out.octet[c] = product<kGradual>(upper, a.octet[c] + b.octet[c]);
        out.octet[3 - c] = product<kGradual>(lower, a.octet[c] - b.octet[c]);
    }
    return out;
}

/// Stores one octet of outputs of every transform; those of odd index run backwards.
template <int kCount, int kStride>
[[gnu::always_inline]] inline void storeOctet(int c, const Octets<kCount>& octet, float* out) noexcept
{
    if constexpr (kCount == 1) {
        store(out + 8 * c, c % 2 == 0 ? octet : reversed(octet));
    } else {
        storeOctet<1, kStride>(c, lowHalf(octet), out);
        storeOctet<1, kStride>(c, highHalf(octet), out + kStride);
    }
}

template <bool kGradual, int kCount, int kStride>
[[gnu::always_inline]] inline void transformTogether(const float (*even)[32], const float (*odd)[32],
                                                     float* out) noexcept
{
    const Cut<kCount, 4> e = cutByFour<kCount>(even);
    const Cut<kCount, 4> o = cutByFour<kCount>(odd);

    // DCT4_2 of the pair sums: u goes through a DCT-IV of 16, v through a DCT-III.
    const Octets<kCount> u[2] = {e.octet[0] + e.octet[1], e.octet[2] + e.octet[3]};
    const Octets<kCount> v[2] = {movedUp<kCount>(e.octet[3]) + e.octet[0], e.octet[1] + e.octet[2]};
    // DCT2_2_X of the shifted pair sums: their even entries and the sums of odd neighbours, both through a DCT-III.
    const Octets<kCount> p[2] = {o.octet[0], o.octet[2]};
    const Octets<kCount> q[2] = {o.octet[1] + movedUp<kCount>(o.octet[3]), o.octet[3] + o.octet[1]};

    const Octets<kCount> dct4Input[1] = {u[0] + u[1]};
    const Octets<kCount> dct3Input[7] = {u[0] + movedUp<kCount>(u[1]), v[0], v[1] + movedUp<kCount>(v[1]), p[0],
                                         p[1] + movedUp<kCount>(p[1]), q[0], q[1] + movedUp<kCount>(q[1])};
    constexpr std::make_integer_sequence<int, 8> kAllColumns{};
    Octets<kCount> dct4[1];
    Octets<kCount> dct3[7];
    multiply<kGradual, kCount>(transformTables.dct4Columns, dct4Input, dct4, kAllColumns);
    multiply<kGradual, kCount>(transformTables.dct3Columns, dct3Input, dct3, kAllColumns);

    const Cut<kCount, 4> a = joinDct4Of32<kGradual, kCount>(joinDct4Of16<kGradual, kCount>(dct4[0], dct3[0]),
                                                            joinDct3Of16<kGradual, kCount>(dct3[1], dct3[2]));
    const Cut<kCount, 4> b = joinDct3Of32<kGradual, kCount>(joinDct3Of16<kGradual, kCount>(dct3[3], dct3[4]),
                                                            joinDct3Of16<kGradual, kCount>(dct3[5], dct3[6]));
    for (int c = 0; c < 4; ++c) {
        const Octets<kCount> upper = repeated<kCount>(transformTables.dct4Scale64[0][c]);
        const Octets<kCount> lower = repeated<kCount>(transformTables.dct4Scale64[1][c]);
        storeOctet<kCount, kStride>(c, product<kGradual>(upper, a.octet[c] + b.octet[c]), out);
        storeOctet<kCount, kStride>(7 - c, product<kGradual>(lower, a.octet[c] - b.octet[c]), out);
    }
}

} // namespace

namespace
{

template <bool kGradual, int kCount, int kStride>
void transformAll(const float (*even)[32], const float (*odd)[32], float* out) noexcept
{
    // Two transforms fill the widest vectors; narrower ones are full with one.
    constexpr int kTogether = kVectorFloats / 8 == 2 ? 2 : 1;
    int t = 0;
    for (; t + kTogether <= kCount; t += kTogether)
        transformTogether<kGradual, kTogether, kStride>(even + t, odd + t, out + t * kStride);
    if constexpr (kCount % kTogether != 0)
        transformTogether<kGradual, 1, kStride>(even + t, odd + t, out + t * kStride);
}

} // namespace

template <int kCount, int kStride>
void transformPairSums(const float (*even)[32], const float (*odd)[32], float* out, bool tiny) noexcept
{
    if (tiny) {
        transformAll<true, kCount, kStride>(even, odd, out);
    } else {
        transformAll<false, kCount, kStride>(even, odd, out);
    }
}

template void transformPairSums<2, 64>(const float (*)[32], const float (*)[32], float*, bool) noexcept;
template void transformPairSums<3, 1024>(const float (*)[32], const float (*)[32], float*, bool) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
