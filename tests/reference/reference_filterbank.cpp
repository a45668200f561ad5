// The filterbank of the reference engine.
// SPDX-License-Identifier: MIT
#include "tests/reference/reference_filterbank.h"

#include <cmath>

namespace reference
{

float dct4Table64[2112];
float dct4Table32[544];
float dct3Table32[528];
float dct3Table16[136];
float dct4Table16[144];

namespace
{

// Single-precision pi. Volatile, so that every cosine is evaluated by the C library at run time: compilers fold
// cosines of constant angles with another rounding.
const volatile float kPi = 3.14159274f;

/// Angle of a matrix entry: column factor times row factor times pi times the reciprocal of the denominator.
///
/// Order  single precision, left to right
float matrixAngle(float columnFactor, float rowFactor, int denominator)
{
    const float pi = kPi;
    const float reciprocal = 1.0f / static_cast<float>(denominator);
    return columnFactor * rowFactor * pi * reciprocal;
}

/// Angle of a scale entry: row factor times pi times the reciprocal of the denominator.
///
/// Order  single precision, left to right
float scaleAngle(float rowFactor, int denominator)
{
    const float pi = kPi;
    const float reciprocal = 1.0f / static_cast<float>(denominator);
    return rowFactor * pi * reciprocal;
}

/// The odd number 2 i + 1 in single precision.
float oddFactor(int i)
{
    return static_cast<float>(i + i) + 1.0f;
}

/// Fills a DCT-IV block of size n: C1, C2, S1, S2.
void fillDct4Table(int n, float* table)
{
    const int h = n / 2;
    float* c1 = table;
    float* c2 = table + h * h;
    float* s1 = table + 2 * h * h;
    float* s2 = table + 2 * h * h + h;

    for (int i = 0; i < h; ++i) {
        for (int j = 0; j < h; ++j) {
            const float angle = matrixAngle(oddFactor(j), oddFactor(i), 2 * n);
            c1[i * h + j] = std::cos(angle);
        }
    }
    for (int i = 0; i < h; ++i) {
        for (int j = 0; j < h; ++j) {
            const float angle = matrixAngle(static_cast<float>(j), oddFactor(i), n);
            c2[i * h + j] = std::cos(angle);
        }
    }
    for (int i = 0; i < h; ++i) {
        const double angle = static_cast<double>(scaleAngle(oddFactor(i), 4 * n));
        s1[i] = static_cast<float>(1.0 / (2.0 * std::cos(angle)));
    }
    for (int i = 0; i < h; ++i) {
        const double angle = static_cast<double>(scaleAngle(oddFactor(i), 4 * n));
        s2[i] = static_cast<float>(-1.0 / (2.0 * std::sin(angle)));
    }
}

/// Fills a DCT-III block of size n: Me, Mo (the same values), S.
void fillDct3Table(int n, float* table)
{
    const int h = n / 2;
    float* me = table;
    float* mo = table + h * h;
    float* s = table + 2 * h * h;

    for (int i = 0; i < h; ++i) {
        for (int j = 0; j < h; ++j) {
            const float angle = matrixAngle(static_cast<float>(j), oddFactor(i), n);
            me[i * h + j] = std::cos(angle);
            mo[i * h + j] = std::cos(angle);
        }
    }
    for (int i = 0; i < h; ++i) {
        const double angle = static_cast<double>(scaleAngle(oddFactor(i), 2 * n));
        s[i] = static_cast<float>(1.0 / (2.0 * std::cos(angle)));
    }
}

/// Sum of row i of a matrix against the even-indexed inputs.
///
/// Order  ascending j, from the first product
float evenRowSum(int h, const float* matrix, int i, const float* in)
{
    float sum = matrix[i * h] * in[0];
    for (int j = 1; j < h; ++j) sum += matrix[i * h + j] * in[2 * j];
    return sum;
}

/// Sum of row i of a matrix against the odd-indexed inputs, each added to its lower odd neighbour.
///
/// Order  ascending j, from the first product, whose input stands alone
float oddRowSum(int h, const float* matrix, int i, const float* in)
{
    float sum = matrix[i * h] * in[1];
    for (int j = 1; j < h; ++j) sum += matrix[i * h + j] * (in[2 * j + 1] + in[2 * j - 1]);
    return sum;
}

/// Sum of row i of a matrix against the pair sums in[2j] + in[2j+1].
///
/// Order  ascending j, from the first product
float pairRowSum(int h, const float* matrix, int i, const float* in)
{
    float sum = matrix[i * h] * (in[0] + in[1]);
    for (int j = 1; j < h; ++j) sum += matrix[i * h + j] * (in[2 * j] + in[2 * j + 1]);
    return sum;
}

/// Sum of row i of a matrix against the shifted pair sums in[2j] + in[2j-1].
///
/// Order  ascending j, from the first product, whose input stands alone
float shiftedPairRowSum(int h, const float* matrix, int i, const float* in)
{
    float sum = matrix[i * h] * in[0];
    for (int j = 1; j < h; ++j) sum += matrix[i * h + j] * (in[2 * j] + in[2 * j - 1]);
    return sum;
}

} // namespace

void cosModTablesInit()
{
    fillDct4Table(64, dct4Table64);
    fillDct4Table(32, dct4Table32);
    fillDct3Table(32, dct3Table32);
    fillDct3Table(16, dct3Table16);
    fillDct4Table(16, dct4Table16);
}

void DCT2_3_X(int n, float* table, float* out, float* in)
{
    const int h = n / 2;
    if (h < 1) return;
    const float* me = table;
    const float* mo = table + h * h;
    const float* s = table + 2 * h * h;

    float even[8];
    float odd[8];
    for (int i = 0; i < h; ++i) {
        even[i] = evenRowSum(h, me, i, in);
        odd[i] = oddRowSum(h, mo, i, in);
    }
    for (int i = 0; i < h; ++i) {
        odd[i] = odd[i] * s[i];
        out[i] = even[i] + odd[i];
        out[n - 1 - i] = even[i] - odd[i];
    }
}

void DCT2_3_XX(int n, float* table, float* out1, float* in1, float* out2, float* in2)
{
    const int h = n / 2;
    if (h < 1) return;
    const float* me = table;
    const float* mo = table + h * h;
    const float* s = table + 2 * h * h;

    float even1[8];
    float odd1[8];
    float even2[8];
    float odd2[8];
    for (int i = 0; i < h; ++i) {
        even1[i] = evenRowSum(h, me, i, in1);
        odd1[i] = oddRowSum(h, mo, i, in1);
        even2[i] = evenRowSum(h, me, i, in2);
        odd2[i] = oddRowSum(h, mo, i, in2);
    }
    for (int i = 0; i < h; ++i) {
        odd1[i] = odd1[i] * s[i];
        out1[i] = even1[i] + odd1[i];
        out1[n - 1 - i] = even1[i] - odd1[i];
        odd2[i] = odd2[i] * s[i];
        out2[i] = even2[i] + odd2[i];
        out2[n - 1 - i] = even2[i] - odd2[i];
    }
}

void DCT2_3(int n, float* table, float* out, float* in)
{
    const int h = n / 2;
    if (h < 1) return;
    const float* me = table;
    const float* mo = table + h * h;
    const float* s = table + 2 * h * h;

    float scratch[16];
    float* even = scratch;
    float* odd = scratch + 8;
    for (int i = 0; i < h; ++i) even[i] = evenRowSum(h, me, i, in);
    for (int i = 0; i < h; ++i) odd[i] = oddRowSum(h, mo, i, in);
    for (int i = 0; i < h; ++i) {
        odd[i] = odd[i] * s[i];
        out[i] = even[i] + odd[i];
        out[n - 1 - i] = even[i] - odd[i];
    }
}

void DCT4_3_X(int n, float* table, float* out, float* in)
{
    const int h = n / 2;
    if (h < 1) return;
    const float* c1 = table;
    const float* c2 = table + h * h;
    const float* s1 = table + 2 * h * h;
    const float* s2 = table + 2 * h * h + h;

    float a[8];
    float b[8];
    for (int i = 0; i < h; ++i) {
        a[i] = pairRowSum(h, c1, i, in);
        b[i] = shiftedPairRowSum(h, c2, i, in);
    }
    for (int i = 0; i < h; ++i) {
        out[i] = s1[i] * (a[i] + b[i]);
        out[n - 1 - i] = s2[i] * (a[i] - b[i]);
    }
}

void DCT4_3(int n, float* table, float* out, float* in)
{
    const int h = n / 2;
    if (h < 1) return;
    const float* c1 = table;
    const float* c2 = table + h * h;
    const float* s1 = table + 2 * h * h;
    const float* s2 = table + 2 * h * h + h;

    float a[8];
    float b[8];
    for (int i = 0; i < h; ++i) a[i] = pairRowSum(h, c1, i, in);
    for (int i = 0; i < h; ++i) b[i] = shiftedPairRowSum(h, c2, i, in);
    for (int i = 0; i < h; ++i) {
        out[i] = s1[i] * (a[i] + b[i]);
        out[n - 1 - i] = s2[i] * (a[i] - b[i]);
    }
}

void DCT2_2(int n, float* table, float* out, float* in)
{
    float scratch[16];
    float even[16];
    float odd[16];

    for (int j = 0; j < 16; ++j) scratch[j] = in[2 * j];
    DCT2_3_X(16, dct3Table16, even, scratch);
    scratch[0] = in[1];
    for (int j = 1; j < 16; ++j) scratch[j] = in[2 * j + 1] + in[2 * j - 1];
    DCT2_3_X(16, dct3Table16, odd, scratch);

    const int h = n / 2;
    if (h < 1) return;
    const float* s = table + 2 * h * h;
    for (int i = 0; i < h; ++i) {
        odd[i] = odd[i] * s[i];
        out[i] = even[i] + odd[i];
        out[n - 1 - i] = even[i] - odd[i];
    }
}

void DCT2_2_X(int n, float* table, float* out, float* in)
{
    float evenIn[16];
    float oddIn[16];
    float even[16];
    float odd[16];

    for (int j = 0; j < 16; ++j) evenIn[j] = in[2 * j];
    oddIn[0] = in[1];
    for (int j = 1; j < 16; ++j) oddIn[j] = in[2 * j + 1] + in[2 * j - 1];
    DCT2_3_XX(16, dct3Table16, even, evenIn, odd, oddIn);

    const int h = n / 2;
    if (h < 1) return;
    const float* s = table + 2 * h * h;
    for (int i = 0; i < h; ++i) {
        odd[i] = odd[i] * s[i];
        out[i] = even[i] + odd[i];
        out[n - 1 - i] = even[i] - odd[i];
    }
}

void DCT4_2(int n, float* table, float* out, float* in)
{
    float scratch[16];
    float a[16];
    float b[16];

    for (int j = 0; j < 16; ++j) scratch[j] = in[2 * j] + in[2 * j + 1];
    DCT4_3_X(16, dct4Table16, a, scratch);
    scratch[0] = in[0];
    for (int j = 1; j < 16; ++j) scratch[j] = in[2 * j] + in[2 * j - 1];
    DCT2_3_X(16, dct3Table16, b, scratch);

    const int h = n / 2;
    if (h < 1) return;
    const float* s1 = table + 2 * h * h;
    const float* s2 = table + 2 * h * h + h;
    for (int i = 0; i < h; ++i) {
        out[i] = s1[i] * (a[i] + b[i]);
        out[n - 1 - i] = s2[i] * (a[i] - b[i]);
    }
}

void cosModDCT4_X1(float* out, float* even, float* odd)
{
    float a[32];
    float b[32];
    DCT4_2(32, dct4Table32, a, even);
    DCT2_2_X(32, dct3Table32, b, odd);

    const float* s1 = dct4Table64 + 2 * 32 * 32;
    const float* s2 = s1 + 32;
    for (int k = 0; k < 32; ++k) {
        out[k] = s1[k] * (a[k] + b[k]);
        out[63 - k] = s2[k] * (a[k] - b[k]);
    }
}

void cosModDCT4(float* out, float* in)
{
    float scratch[32];
    float a[32];
    float b[32];
    for (int j = 0; j < 32; ++j) scratch[j] = in[2 * j] + in[2 * j + 1];
    DCT4_2(32, dct4Table32, a, scratch);
    scratch[0] = in[0];
    for (int j = 1; j < 32; ++j) scratch[j] = in[2 * j - 1] + in[2 * j];
    DCT2_2_X(32, dct3Table32, b, scratch);

    const float* s1 = dct4Table64 + 2 * 32 * 32;
    const float* s2 = s1 + 32;
    for (int k = 0; k < 32; ++k) {
        out[k] = s1[k] * (a[k] + b[k]);
        out[63 - k] = s2[k] * (a[k] - b[k]);
    }
}

void cosModDCT4_X(float* out, float* in)
{
    float scratch[32];
    float a[32];
    float b[32];
    for (int j = 0; j < 32; ++j) scratch[j] = in[2 * j] + in[2 * j + 1];
    DCT4_2(32, dct4Table32, a, scratch);
    scratch[0] = in[0];
    for (int j = 1; j < 32; ++j) scratch[j] = in[2 * j - 1] + in[2 * j];
    DCT2_2_X(32, dct3Table32, b, scratch);

    const float* s1 = dct4Table64 + 2 * 32 * 32;
    const float* s2 = s1 + 32;
    for (int k = 0; k < 32; ++k) {
        out[63 - k] = s2[k] * (a[k] - b[k]);
        out[k] = s1[k] * (a[k] + b[k]);
    }
}

} // namespace reference
