// The speed at which every group follows its steering.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Smooths the steering of every group at four speeds, chooses one speed, and sets all four to its value.
///
/// Groups follow strong steering, and any steering in a tonal block, at the fast speed. They follow weaker steering at
/// mid, slow or slower speed, depending on the three thresholds of the group. With three output channels, only the
/// slower speed can reach positions in the back.
///
/// In      steerLR, steerFB, thres, midThres, slowThres [16], tonalBlock, outputChannels, slower, slow, mid, fast
/// In/Out  lrSlower ... fbFast [16]     afterwards all four speeds hold the chosen position
/// Out     usedFast, usedMid, usedSlow  speed of the last group; all are 0 for slower
///         meanLRFast                   mean of the lrFast of all groups before the choice, group ascending
void selectSpeeds(ZRKTarn& engine) noexcept;

/// The speed at which every group followed its steering in the last block: 0 slower, 1 slow, 2 mid, 3 fast. In mode 2,
/// where fast is as slow as mid, 2 instead of 3.
///
/// In   steerLR, steerFB, thres, midThres, slowThres [16], tonalBlock, holdMidSmoothing  as the block left them
/// Out  speed [16]
void readSpeeds(const ZRKTarn& engine, std::int32_t (&speed)[16]) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
