// Stores the remap matrix.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"

std::uint32_t ZRKTarn::SetRemapCoeff(int (*coeff)[4]) noexcept
{
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c) remapCoeff[r][c] = coeff[r][c];

    for (int c = 0; c < 4; ++c) {
        std::uint32_t terms = 0;
        for (std::uint32_t r = 0; r < 3; ++r) {
            if (coeff[r][c] == 0) continue;
            remapTermGain[c][terms] = coeff[r][c];
            remapTermSource[c][terms] = r;
            ++terms;
        }
        remapTermCount[c] = terms;
    }
    return 0;
}
