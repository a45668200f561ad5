// Steering from level relations.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// A position between the loudspeakers: left/right from 1 to -1, front/back from 1 to -1.
struct Steering
{
    float lr;
    float fb;
};

/// Computes the steering from levels.
///
/// The distance from the middle is 1 minus the ratio of the smaller to the larger level. 4 is added to both levels, so
/// quiet groups stay near the middle. For positions in the back, front/back is multiplied by 1.5 and left/right by up
/// to
/// 2. Both are limited to -1 to 1.
///
/// In  left, right  levels of the channels, engine scale, non-negative
///     sum, diff    levels of their sum and difference, engine scale, non-negative
Steering steer(float left, float right, float sum, float diff) noexcept;

/// Computes the steering of the broadband levels and smooths it at four speeds. No stage reads the result.
///
/// In      avgLevelL ... avgLevelDiff, slower, slow, mid, fast
/// Out     globalLR, globalFB
/// In/Out  globalLRSlower ... globalFBFast
void steerBroadband(ZRKTarn& engine) noexcept;

/// Computes the steering of every group.
///
/// In   powL, powR, powSum, powDiff [16]
/// Out  steerLR, steerFB [16]
void steerGroups(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
