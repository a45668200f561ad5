// DCT kernels of size 2 to 32, one value at a time.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "filterbank/pair_sums.h"

// A transform of size n is split into two of size h = n / 2, which are matrix-vector products; combining them gives the
// outputs i and n - 1 - i. The kernels of size 32 split twice.

namespace
{

using zrk_tarn::evenEntries;
using zrk_tarn::oddNeighbourSums;
using zrk_tarn::pairSums;
using zrk_tarn::shiftedPairSums;

constexpr int kDirectHalf = 8;     ///< largest h of a direct kernel
constexpr int kRecursiveHalf = 16; ///< h of the recursive kernels

/// One output of a matrix-vector product; columns ascending.
float rowProduct(const float* row, const float* vector, int h)
{
    float sum = row[0] * vector[0];
    for (int j = 1; j < h; ++j) sum += row[j] * vector[j];
    return sum;
}

void matrixProduct(const float* matrix, const float* vector, int h, float* product)
{
    for (int i = 0; i < h; ++i) product[i] = rowProduct(matrix + i * h, vector, h);
}

/// Outputs i and n - 1 - i of a DCT-III from the outputs of its halves; scales the odd half first.
void combineDct3(float even, float odd, float scale, int i, int n, float* out)
{
    const float scaledOdd = odd * scale;
    out[i] = even + scaledOdd;
    out[n - 1 - i] = even - scaledOdd;
}

/// Outputs i and n - 1 - i of a DCT-IV from the outputs of its halves.
void combineDct4(float a, float b, const float* scales, int i, int n, float* out)
{
    out[i] = scales[i] * (a + b);
    out[n - 1 - i] = scales[n / 2 + i] * (a - b);
}

} // namespace

void DCT2_3_X(int n, float* table, float* out, float* in)
{
    const int h = n / 2;
    if (h < 1) return;

    const float* even = table;
    const float* odd = table + h * h;
    const float* scale = table + 2 * h * h;
    float evenInput[kDirectHalf];
    float oddInput[kDirectHalf];
    evenEntries(in, h, evenInput);
    oddNeighbourSums(in, h, oddInput);
    for (int i = 0; i < h; ++i)
        combineDct3(rowProduct(even + i * h, evenInput, h), rowProduct(odd + i * h, oddInput, h), scale[i], i, n, out);
}

void DCT2_3_XX(int n, float* table, float* out1, float* in1, float* out2, float* in2)
{
    const int h = n / 2;
    if (h < 1) return;

    const float* scale = table + 2 * h * h;
    float evenInput1[kDirectHalf];
    float oddInput1[kDirectHalf];
    float evenInput2[kDirectHalf];
    float oddInput2[kDirectHalf];
    evenEntries(in1, h, evenInput1);
    oddNeighbourSums(in1, h, oddInput1);
    evenEntries(in2, h, evenInput2);
    oddNeighbourSums(in2, h, oddInput2);
    for (int i = 0; i < h; ++i) {
        const float* const even = table + i * h;
        const float* const odd = table + h * h + i * h;
        combineDct3(rowProduct(even, evenInput1, h), rowProduct(odd, oddInput1, h), scale[i], i, n, out1);
        combineDct3(rowProduct(even, evenInput2, h), rowProduct(odd, oddInput2, h), scale[i], i, n, out2);
    }
}

void DCT2_3(int n, float* table, float* out, float* in)
{
    const int h = n / 2;
    if (h < 1) return;

    float half[kDirectHalf];
    float products[2 * kDirectHalf];
    evenEntries(in, h, half);
    matrixProduct(table, half, h, products);
    oddNeighbourSums(in, h, half);
    matrixProduct(table + h * h, half, h, products + kDirectHalf);

    const float* scale = table + 2 * h * h;
    for (int i = 0; i < h; ++i) combineDct3(products[i], products[kDirectHalf + i], scale[i], i, n, out);
}

void DCT4_3_X(int n, float* table, float* out, float* in)
{
    const int h = n / 2;
    if (h < 1) return;

    const float* c1 = table;
    const float* c2 = table + h * h;
    const float* scales = table + 2 * h * h;
    float sums[kDirectHalf];
    float shiftedSums[kDirectHalf];
    pairSums(in, h, sums);
    shiftedPairSums(in, h, shiftedSums);
    for (int i = 0; i < h; ++i)
        combineDct4(rowProduct(c1 + i * h, sums, h), rowProduct(c2 + i * h, shiftedSums, h), scales, i, n, out);
}

void DCT4_3(int n, float* table, float* out, float* in)
{
    const int h = n / 2;
    if (h < 1) return;

    float half[kDirectHalf];
    float a[kDirectHalf];
    float b[kDirectHalf];
    pairSums(in, h, half);
    matrixProduct(table, half, h, a);
    shiftedPairSums(in, h, half);
    matrixProduct(table + h * h, half, h, b);

    const float* scales = table + 2 * h * h;
    for (int i = 0; i < h; ++i) combineDct4(a[i], b[i], scales, i, n, out);
}

void DCT2_2(int n, float* table, float* out, float* in)
{
    float half[kRecursiveHalf];
    float even[kRecursiveHalf];
    float odd[kRecursiveHalf];
    evenEntries(in, kRecursiveHalf, half);
    DCT2_3_X(kRecursiveHalf, dct3Table16, even, half);
    oddNeighbourSums(in, kRecursiveHalf, half);
    DCT2_3_X(kRecursiveHalf, dct3Table16, odd, half);

    const int h = n / 2;
    const float* scale = table + 2 * h * h;
    for (int i = 0; i < h; ++i) combineDct3(even[i], odd[i], scale[i], i, n, out);
}

void DCT2_2_X(int n, float* table, float* out, float* in)
{
    float evenInput[kRecursiveHalf];
    float oddInput[kRecursiveHalf];
    float even[kRecursiveHalf];
    float odd[kRecursiveHalf];
    evenEntries(in, kRecursiveHalf, evenInput);
    oddNeighbourSums(in, kRecursiveHalf, oddInput);
    DCT2_3_XX(kRecursiveHalf, dct3Table16, even, evenInput, odd, oddInput);

    const int h = n / 2;
    const float* scale = table + 2 * h * h;
    for (int i = 0; i < h; ++i) combineDct3(even[i], odd[i], scale[i], i, n, out);
}

void DCT4_2(int n, float* table, float* out, float* in)
{
    float half[kRecursiveHalf];
    float a[kRecursiveHalf];
    float b[kRecursiveHalf];
    pairSums(in, kRecursiveHalf, half);
    DCT4_3_X(kRecursiveHalf, dct4Table16, a, half);
    shiftedPairSums(in, kRecursiveHalf, half);
    DCT2_3_X(kRecursiveHalf, dct3Table16, b, half);

    const int h = n / 2;
    const float* scales = table + 2 * h * h;
    for (int i = 0; i < h; ++i) combineDct4(a[i], b[i], scales, i, n, out);
}
