// The mixing matrices of the nine regions, for two numbers of output channels.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"

// One mixing matrix per region. The first digit of a name is the region in this grid; at the given steering values the
// matrix of the region is used alone:
//
//              left (+1)  middle (0)  right (-1)
//   front (+1)     1          2           3
//         ( 0)     4          5           6
//   back  (-1)     7          8           9
//
// Elements come in pairs, the coefficient on the left input and the one on the right:
// 0, 1 front left; 2, 3 centre; 4, 5 front right. No operation reads elements 6 to 11.
//
// In elements 0 to 5, regions 3, 6 and 9 mirror regions 1, 4 and 7. In region 1 front right subtracts a part of the
// left input. In region 4 the centre gets the right input only, so a hard left source is not in the centre.

// clang-format off

// Fewer than six output channels
const float ZRKTarn::MATRIX15[12] = {0.86f, -0.254f, 0.354f, 0.354f, -0.254f, 0.254f, 0.5f, -0.5f, 0.0f, 0.0f, 0.0f, 0.0f};
const float ZRKTarn::MATRIX25[12] = {0.354f, -0.354f, 0.707f, 0.707f, -0.354f, 0.354f, 0.354f, -0.354f, 0.0f, 0.0f, 0.354f, -0.354f};
const float ZRKTarn::MATRIX35[12] = {0.254f, -0.254f, 0.354f, 0.354f, -0.254f, 0.86f, 0.0f, 0.0f, 0.0f, 0.0f, 0.5f, -0.5f};
const float ZRKTarn::MATRIX45[12] = {1.0f, 0.0f, 0.0f, 0.5f, 0.0f, 0.707f, 0.0f, -0.0f, 0.0f, 0.0f, 0.0f, -0.354f};
const float ZRKTarn::MATRIX55[12] = {0.707f, 0.0f, 0.5f, 0.5f, 0.0f, 0.707f, 0.354f, -0.354f, 0.0f, 0.0f, 0.354f, -0.354f};
const float ZRKTarn::MATRIX65[12] = {0.707f, 0.0f, 0.5f, 0.0f, 0.0f, 1.0f, 0.354f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
const float ZRKTarn::MATRIX75[12] = {0.077f, 0.154f, 0.077f, 0.154f, 0.154f, 0.308f, 1.0f, -0.414f, 0.0f, 0.0f, 0.0f, 0.0f};
const float ZRKTarn::MATRIX85[12] = {0.154f, 0.154f, 0.25f, 0.25f, 0.154f, 0.154f, 0.5f, -0.5f, 0.0f, 0.0f, 0.5f, -0.5f};
const float ZRKTarn::MATRIX95[12] = {0.308f, 0.154f, 0.154f, 0.077f, 0.154f, 0.077f, 0.0f, 0.0f, 0.0f, 0.0f, 0.414f, -1.0f};

// Six and more output channels
const float ZRKTarn::MATRIX16[12] = {0.86f, -0.254f, 0.354f, 0.354f, -0.254f, 0.254f, 0.5f, -0.5f, 0.0f, -0.0f, 0.0f, 0.0f};
const float ZRKTarn::MATRIX26[12] = {0.354f, -0.354f, 0.707f, 0.707f, -0.354f, 0.354f, 0.25f, -0.25f, 0.354f, -0.354f, 0.25f, -0.25f};
const float ZRKTarn::MATRIX36[12] = {0.254f, -0.254f, 0.354f, 0.354f, -0.254f, 0.86f, 0.0f, 0.0f, 0.0f, -0.0f, 0.5f, -0.5f};
const float ZRKTarn::MATRIX46[12] = {1.0f, 0.0f, 0.0f, 0.5f, 0.0f, 0.707f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.354f};
const float ZRKTarn::MATRIX56[12] = {0.707f, 0.0f, 0.5f, 0.5f, 0.0f, 0.707f, 0.354f, -0.354f, 0.45f, -0.45f, 0.354f, -0.354f};
const float ZRKTarn::MATRIX66[12] = {0.707f, 0.0f, 0.5f, 0.0f, 0.0f, 1.0f, 0.354f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
const float ZRKTarn::MATRIX76[12] = {0.077f, 0.154f, 0.077f, 0.154f, 0.154f, 0.308f, 1.0f, -0.414f, 0.0f, 0.0f, 0.0f, 0.0f};
const float ZRKTarn::MATRIX86[12] = {0.154f, 0.154f, 0.25f, 0.25f, 0.154f, 0.154f, 0.0f, 0.0f, 0.707f, -0.707f, 0.0f, 0.0f};
const float ZRKTarn::MATRIX96[12] = {0.308f, 0.154f, 0.154f, 0.077f, 0.154f, 0.077f, 0.0f, 0.0f, 0.0f, 0.0f, 0.414f, -1.0f};

// clang-format on
