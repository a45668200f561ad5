// The cosine tables in the layout of the vector transforms.
// SPDX-License-Identifier: MIT
#pragma once

namespace zrk_tarn
{

/// Copies of entries of the blocks in filterbank/cos_mod.h, filled by cosModTablesInit and zero before.
///
/// The matrices are transposed, because products are computed column by column. Three of the four matrices of size 8
/// are the same DCT-III; the fourth is the DCT-IV. Scales are stored in octets; every second octet is reversed, like
/// the outputs in transform.cpp.
struct TransformTables
{
    float dct3Columns[8][8];    ///< Me, Mo of dct3Table16 and C2 of dct4Table16, [column][row]
    float dct4Columns[8][8];    ///< C1 of dct4Table16, [column][row]
    float dct3Scale16[8];       ///< S of dct3Table16
    float dct4Scale16[2][8];    ///< S1 and S2 of dct4Table16
    float dct3Scale32[2][8];    ///< S of dct3Table32, [octet]
    float dct4Scale32[2][2][8]; ///< S1 and S2 of dct4Table32, [octet]
    float dct4Scale64[2][4][8]; ///< S1 and S2 of dct4Table64, [octet]
};

extern TransformTables transformTables;

} // namespace zrk_tarn
