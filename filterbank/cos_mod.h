// The public functions and tables of the filterbank.
// SPDX-License-Identifier: MIT
#pragma once

/// @file
/// The 64-band cosine-modulated filterbank: prototype filter, cosine tables, fast DCT kernels, 64-point transforms.
///
/// All transforms are unnormalised and in single precision:
///   DCT-III of size n  X[k] = sum of x[m] * cos(pi * m * (2k + 1) / (2n)),        m = 0..n-1
///   DCT-IV of size n   X[k] = sum of x[m] * cos(pi * (2m + 1) * (2k + 1) / (4n)), m = 0..n-1
///
/// Every output is a sum of products in ascending order of the index, started from the first product.
/// Inputs are not changed. Outputs are written in full and must not overlap inputs unless a function allows it.
/// No function allocates. After cosModTablesInit all functions are reentrant and real-time safe. Kernels and transforms
/// run in the caller's floating-point environment, cosModTablesInit in the default one.
///
/// H. S. Malvar, Signal Processing with Lapped Transforms, Artech House, 1992 (cosine-modulated banks).
/// P. P. Vaidyanathan, Multirate Systems and Filter Banks, Prentice Hall, 1993, chapter 8.
/// K. R. Rao, P. Yip, Discrete Cosine Transform, Academic Press, 1990 (even/odd factorisations).

#pragma GCC visibility push(default)

/// Prototype filter, antisymmetric: lpf[i] = (-1)^floor(i / 128) * p[i] with p a symmetric low-pass of unity DC gain.
///
/// The sign changes every 128 taps; it holds the alternating signs of the polyphase structure.
extern const float lpf[1024];

/// Fills the five table blocks with the same values, to the last bit, on every machine and with every C library.
///
/// Must return before the process runs a transform. Later calls write only entries that differ, so refilling cannot
/// race with transforms. The function takes no lock: the first call must not overlap other calls.
void cosModTablesInit();

/// DCT-III of size n = 2 to 16, computed row by row; table is a DCT-III block of size n. n below 2 writes nothing.
void DCT2_3_X(int n, float* table, float* out, float* in);

/// Two DCT-IIIs of size n = 2 to 16 that share one table block: out1 of in1, out2 of in2.
void DCT2_3_XX(int n, float* table, float* out1, float* in1, float* out2, float* in2);

/// DCT-III of size n = 2 to 16 in two passes; the same values as DCT2_3_X.
void DCT2_3(int n, float* table, float* out, float* in);

/// DCT-IV of size n = 2 to 16, computed row by row; table is a DCT-IV block of size n. n below 2 writes nothing.
void DCT4_3_X(int n, float* table, float* out, float* in);

/// DCT-IV of size n = 2 to 16 in two passes; the same values as DCT4_3_X.
void DCT4_3(int n, float* table, float* out, float* in);

/// DCT-III of size n = 32 by recursion; reads S of table (dct3Table32), and dct3Table16 for both halves.
void DCT2_2(int n, float* table, float* out, float* in);

/// DCT-III of size n = 32 with one DCT2_3_XX call for both halves; the same values as DCT2_2.
void DCT2_2_X(int n, float* table, float* out, float* in);

/// DCT-IV of size n = 32 by recursion; reads S1 and S2 of table (dct4Table32), dct4Table16 and dct3Table16.
void DCT4_2(int n, float* table, float* out, float* in);

/// DCT-IV of size 64 of a vector x, from the pair sums of x.
///
/// even  [32]  even[j] = x[2j] + x[2j + 1]
/// odd   [32]  odd[0] = x[0], odd[j] = x[2j - 1] + x[2j]
/// out   [64]  band 0 lowest; may overlap even or odd
void cosModDCT4_X1(float* out, float* even, float* odd);

/// DCT-IV of size 64 of in [64] into out [64]; out may be in. Applied twice it gives 32 times the input.
void cosModDCT4(float* out, float* in);

/// The same transform and values as cosModDCT4.
void cosModDCT4_X(float* out, float* in);

#pragma GCC visibility pop

// Table blocks, row-major (row = output index i, column = input index j), zero until cosModTablesInit has run.
// With h = n / 2:
//   DCT-IV block   C1 [h][h]  cos(pi * (2i + 1) * (2j + 1) / (4h))      DCT-IV of size h, for the pair sums
//                  C2 [h][h]  cos(pi * (2i + 1) * j / (2h))             DCT-III of size h, for the shifted pair sums
//                  S1 [h]      1 / (2 * cos(pi * (2i + 1) / (4n)))
//                  S2 [h]     -1 / (2 * sin(pi * (2i + 1) / (4n)))
//   DCT-III block  Me [h][h]  cos(pi * j * (2i + 1) / n)
//                  Mo [h][h]  the same values
//                  S  [h]      1 / (2 * cos(pi * (2i + 1) / (2n)))
// The blocks are internal to the library: programs that call the kernels with them link it statically.
extern float dct4Table64[2112]; ///< DCT-IV block, n = 64
extern float dct4Table32[544];  ///< DCT-IV block, n = 32
extern float dct3Table32[528];  ///< DCT-III block, n = 32
extern float dct3Table16[136];  ///< DCT-III block, n = 16
extern float dct4Table16[144];  ///< DCT-IV block, n = 16
