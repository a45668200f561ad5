// The speed at which every group follows its steering.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Smooths the steering of every group at four speeds, chooses one speed, and sets all four to its value.
///
/// Strong steering, and all steering in a tonal block, is followed at the fast speed; weaker steering at mid, slow or
/// slower speed by the three thresholds of the group. With three output channels, only the slower speed follows to the
/// back.
///
/// In      steerLR, steerFB, thres, midThres, slowThres [16], tonalBlock, outputChannels, slower, slow, mid, fast
/// In/Out  lrSlower ... fbFast [16]              afterwards all four speeds hold the chosen position
/// Out     usedFast, usedMid, usedSlow           speed of the last group, all 0 for slower
///         meanLRFast                            mean of the groups' lrFast before the choice, group ascending
void selectSpeeds(ZRKTarn& engine) noexcept;

/// The speed that every group followed in the last block: 0 slower, 1 slow, 2 mid, 3 fast. In mode 2, in which fast is
/// as slow as mid, 2 instead of 3.
///
/// In   steerLR, steerFB, thres, midThres, slowThres [16], tonalBlock, holdMidSmoothing  as the block left them
/// Out  speed [16]
void readSpeeds(const ZRKTarn& engine, std::int32_t (&speed)[16]) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
