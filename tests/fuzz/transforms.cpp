// Compares the transforms of the filterbank with the reference.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/transforms.h"

#include "filterbank/cos_mod.h"
#include "tests/fuzz/numbers.h"
#include "tests/reference/reference_filterbank.h"
#include "tests/support/field_bits.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace fuzz
{

namespace
{

using Numbers = std::array<float, 64>;
using Kernel = void (*)(int n, float* table, float* out, float* in);
using PairKernel = void (*)(int n, float* table, float* out1, float* in1, float* out2, float* in2);

Numbers numbersFrom(ByteReader& bytes)
{
    const std::uint8_t kind = bytes.byte();
    tests::Random random(bytes.byte());
    Numbers numbers{};
    for (float& number : numbers) number = numberOf(kind, random);
    return numbers;
}

void require(const char* what, const Numbers& ours, const Numbers& references)
{
    using Field = float[64];
    const std::ptrdiff_t i = tests::firstDifference(*reinterpret_cast<const Field*>(ours.data()),
                                                    *reinterpret_cast<const Field*>(references.data()));
    if (i < 0) return;
    std::fprintf(stderr, "%s: the library and the reference differ in output %td: %a and %a\n", what, i,
                 static_cast<double>(ours[static_cast<std::size_t>(i)]),
                 static_cast<double>(references[static_cast<std::size_t>(i)]));
    std::abort();
}

/// Kernels of any even size from 0 to 16, with arbitrary tables.
void compareSmall(const char* what, Kernel ours, Kernel references, ByteReader& bytes)
{
    const int n = 2 * static_cast<int>(bytes.below(9));
    const Numbers part = numbersFrom(bytes);
    std::array<float, 144> table{};
    for (std::size_t i = 0; i < table.size(); ++i) table[i] = part[(i * 7) % part.size()];
    Numbers in = numbersFrom(bytes);
    Numbers a{};
    Numbers b{};
    ours(n, table.data(), a.data(), in.data());
    references(n, table.data(), b.data(), in.data());
    require(what, a, b);
}

/// Kernels of size 32; library and reference use their own tables.
void compareLarge(const char* what, Kernel ours, float* ourTable, Kernel references, float* referenceTable,
                  ByteReader& bytes)
{
    Numbers in = numbersFrom(bytes);
    Numbers a{};
    Numbers b{};
    ours(32, ourTable, a.data(), in.data());
    references(32, referenceTable, b.data(), in.data());
    require(what, a, b);
}

void comparePairs(const char* what, PairKernel ours, PairKernel references, ByteReader& bytes)
{
    const int n = 2 * static_cast<int>(bytes.below(9));
    Numbers in = numbersFrom(bytes);
    Numbers a{};
    Numbers b{};
    ours(n, dct3Table16, a.data(), in.data(), a.data() + 32, in.data() + 32);
    references(n, reference::dct3Table16, b.data(), in.data(), b.data() + 32, in.data() + 32);
    require(what, a, b);
}

/// Transforms of size 64, sometimes in place.
void compareWhole(const char* what, void (*ours)(float* out, float* in), void (*references)(float* out, float* in),
                  ByteReader& bytes)
{
    const bool inPlace = bytes.below(2) == 0;
    Numbers inA = numbersFrom(bytes);
    Numbers inB = inA;
    Numbers a{};
    Numbers b{};
    ours(inPlace ? inA.data() : a.data(), inA.data());
    references(inPlace ? inB.data() : b.data(), inB.data());
    require(what, inA, inB);
    require(what, a, b);
}

} // namespace

void compareTransforms(ByteReader& bytes)
{
    switch (bytes.below(11)) {
    case 0:
        return compareSmall("DCT2_3_X", DCT2_3_X, reference::DCT2_3_X, bytes);
    case 1:
        return compareSmall("DCT2_3", DCT2_3, reference::DCT2_3, bytes);
    case 2:
        return compareSmall("DCT4_3_X", DCT4_3_X, reference::DCT4_3_X, bytes);
    case 3:
        return compareSmall("DCT4_3", DCT4_3, reference::DCT4_3, bytes);
    case 4:
        return comparePairs("DCT2_3_XX", DCT2_3_XX, reference::DCT2_3_XX, bytes);
    case 5:
        return compareLarge("DCT2_2", DCT2_2, dct3Table32, reference::DCT2_2, reference::dct3Table32, bytes);
    case 6:
        return compareLarge("DCT2_2_X", DCT2_2_X, dct3Table32, reference::DCT2_2_X, reference::dct3Table32, bytes);
    case 7:
        return compareLarge("DCT4_2", DCT4_2, dct4Table32, reference::DCT4_2, reference::dct4Table32, bytes);
    case 8:
        return compareWhole("cosModDCT4", cosModDCT4, reference::cosModDCT4, bytes);
    case 9:
        return compareWhole("cosModDCT4_X", cosModDCT4_X, reference::cosModDCT4_X, bytes);
    default:
        return compareWhole(
            "cosModDCT4_X1", [](float* out, float* in) { cosModDCT4_X1(out, in, in + 32); },
            [](float* out, float* in) { reference::cosModDCT4_X1(out, in, in + 32); }, bytes);
    }
}

} // namespace fuzz
