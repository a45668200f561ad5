// The signal path of the surround channels of a block.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "room/surrounds.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Computes the surround channels of the block that the engine has just processed.
///
/// Covariances, in single precision with values at 2^-31 of the engine scale:
///   sum over a group   four partial sums, each over every fourth band, ascending; then (0 + 1) + (2 + 3)
///   state              (1 - alpha) state + alpha sum, 0 if its magnitude is below 2^-60
/// Weights, with m = (LL + RR) / 2 + 2^-46 and d = (LL - RR) / 2, 0 if its magnitude is below 2^-60:
///   q = max(0, m - sqrt(d d + LR LR))                   power of what is not the dominant source
///   e = LR + 0.625 q                                    half the power of the dominant source, and a little more
///   s = e + (3 q) (max(0, e - 2 |d|) / ((|e| + |d|) + 2^-100))   more near the centre
///   c = d / (sqrt(d d + s s) + 2^-100)                  its place: 1 left, 0 centre, -1 right
///   leftWeight = sqrt(max(0, 1/2 - c / 2)),  rightWeight = sqrt(max(0, 1/2 + c / 2))
/// Difference: leftWeight L - rightWeight R of every band, with L and R of lookAhead blocks before
/// Samples: synthesis as that of an output of the engine, then the sections of every chain, with w below 2^-60 set to 0
///
/// In      engine.subband [2][64], engine.bandCount [16]: one of the groupings that Initialize sets
/// In/Out  all of surrounds but its settings
void renderSurrounds(const ZRKTarn& engine, Surrounds& surrounds) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
