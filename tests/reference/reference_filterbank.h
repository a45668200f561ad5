// The filterbank of the reference engine.
// SPDX-License-Identifier: MIT
#pragma once

/// Filterbank of the reference engine: cosine tables, DCT-III and DCT-IV kernels, 64-point DCT-IV.
///
/// Every function is a plain loop over the sums of the factorised form. The prototype filter is the only data shared
/// with the library.

namespace reference
{

// Table blocks, row-major (row = output index, column = input index), parts packed without gaps.
// A DCT-IV block of size n: C1 (n/2 x n/2), C2 (n/2 x n/2), S1 (n/2), S2 (n/2).
// A DCT-III block of size n: Me (n/2 x n/2), Mo (n/2 x n/2), S (n/2).
extern float dct4Table64[2112];
extern float dct4Table32[544];
extern float dct3Table32[528];
extern float dct3Table16[136];
extern float dct4Table16[144];

/// Fills the five table blocks; every call writes the same values.
void cosModTablesInit();

/// DCT-III of even size n = 2..16, direct.
///
/// Order  every sum ascending in the column; the odd sum starts from its first product
void DCT2_3_X(int n, float* table, float* out, float* in);

/// Two DCT-IIIs of even size n = 2..16 from one table, each summed as in DCT2_3_X.
void DCT2_3_XX(int n, float* table, float* out1, float* in1, float* out2, float* in2);

/// DCT-III of even size n = 2..16, all even sums before all odd sums; the same values as DCT2_3_X.
void DCT2_3(int n, float* table, float* out, float* in);

/// DCT-IV of even size n = 2..16, direct.
///
/// Order  every sum ascending in the column; the difference sum starts from its first product
void DCT4_3_X(int n, float* table, float* out, float* in);

/// DCT-IV of even size n = 2..16, all C1 sums before all C2 sums; the same values as DCT4_3_X.
void DCT4_3(int n, float* table, float* out, float* in);

/// DCT-III of size 32 from two DCT-IIIs of size 16, one after the other.
void DCT2_2(int n, float* table, float* out, float* in);

/// DCT-III of size 32 from two DCT-IIIs of size 16 in one paired call; the same values as DCT2_2.
void DCT2_2_X(int n, float* table, float* out, float* in);

/// DCT-IV of size 32 from a DCT-IV and a DCT-III of size 16.
void DCT4_2(int n, float* table, float* out, float* in);

/// DCT-IV of size 64 of the vector x with even[j] = x[2j] + x[2j+1], odd[0] = x[0], odd[j] = x[2j-1] + x[2j].
///
/// Out    out [64]; may overlap the inputs, which are read completely before the first output is written
/// In     even [32], odd [32]
void cosModDCT4_X1(float* out, float* even, float* odd);

/// DCT-IV of size 64 of a whole vector; out may be in.
void cosModDCT4(float* out, float* in);

/// DCT-IV of size 64 of a whole vector, the upper output of each pair written first; the same values as cosModDCT4.
void cosModDCT4_X(float* out, float* in);

} // namespace reference
