// The 64-point DCT-IV, one value at a time.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "filterbank/pair_sums.h"

namespace
{

/// Computes band k with S1 and band 63 - k with S2 of the 64-point block. Reads the halves before it writes an output.
void combineHalves(const float (&a)[32], const float (&b)[32], float* out)
{
    const float* const s1 = dct4Table64 + 2 * 32 * 32;
    const float* const s2 = s1 + 32;
    for (int k = 0; k < 32; ++k) {
        out[k] = s1[k] * (a[k] + b[k]);
        out[63 - k] = s2[k] * (a[k] - b[k]);
    }
}

} // namespace

void cosModDCT4_X1(float* out, float* even, float* odd)
{
    float a[32];
    float b[32];
    DCT4_2(32, dct4Table32, a, even);
    DCT2_2_X(32, dct3Table32, b, odd);
    combineHalves(a, b, out);
}

void cosModDCT4(float* out, float* in)
{
    float half[32];
    float a[32];
    float b[32];
    zrk_tarn::pairSums(in, 32, half);
    DCT4_2(32, dct4Table32, a, half);
    zrk_tarn::shiftedPairSums(in, 32, half);
    DCT2_2_X(32, dct3Table32, b, half);
    combineHalves(a, b, out);
}

void cosModDCT4_X(float* out, float* in)
{
    cosModDCT4(out, in);
}
