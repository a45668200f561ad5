#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// A place between the loudspeakers: left/right from 1 to -1, front/back from 1 to -1.
struct Steering
{
    float lr;
    float fb;
};

/// Maps level relations to a place.
///
/// The ratio of the smaller level to the larger one gives the distance from the middle; a floor of 4 on both keeps
/// quiet groups there. Places behind the listener are drawn further back, by 1.5, and further to their side.
///
/// In  left, right  levels of the channels, engine scale, non-negative
///     sum, diff    levels of their sum and difference, engine scale, non-negative
Steering steer(float left, float right, float sum, float diff) noexcept;

/// Steers the broadband levels and smooths the result at four speeds. Kept as state; no stage reads it.
///
/// In      avgLevelL ... avgLevelDiff, slower, slow, mid, fast
/// Out     globalLR, globalFB
/// In/Out  globalLRSlower ... globalFBFast
void steerBroadband(ZRKTarn& engine) noexcept;

/// Steers every group.
///
/// In   powL, powR, powSum, powDiff [16]
/// Out  steerLR, steerFB [16]
void steerGroups(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
