// Sums of squared subbands, for meters.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/exact_floats.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Adds the square of every subband to its sum. Magnitudes below trace count as zero.
void addSquares(const float (&subbands)[64], float trace, float (&sums)[64]) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
