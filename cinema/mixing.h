#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Mixes the left and right subbands into front left, front right and centre with the matrix of their group.
///
/// The fronts have a gain of 1.5 for a centred group down to 1 for a fully panned one; the centre has none.
///
/// In   subband [2][64], groupMatrix [16][12], lrSlower [16], bandCount [16], which tiles 64 bands at most
/// Out  outSubband [3][64]  bands past the last group keep their values
///      mixCoeff [6]        those of the last group
///
/// Returns whether a mixed subband is near underflow, so that the transform had better form products gradually.
bool mixSubbands(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
