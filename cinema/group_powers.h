// The smoothed peak measures of every group.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Smooths the four peak measures of every group with the power pair.
///
/// In      peakL, peakR, peakSum, peakDiff [16], power
/// In/Out  powL, powR, powSum, powDiff [16]
void smoothGroupPowers(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
