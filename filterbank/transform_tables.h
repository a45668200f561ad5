#pragma once

namespace zrk_tarn
{

/// The cosine tables in the order in which lanes read them, filled by cosModTablesInit with the entries of the blocks
/// of filterbank/cos_mod.h. Zero until then.
///
/// The 8-point products are formed column by column, so the matrices stand transposed. Three of the four
/// are the same matrix, the DCT-III of size 8; the fourth is the DCT-IV of size 8.
/// Halves are recombined in octets of eight outputs, of which every second one runs backwards (see transform.cpp); the
/// scales run with them.
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
