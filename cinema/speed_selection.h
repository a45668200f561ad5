#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Smooths every group's steering at four speeds, follows one of them and continues all four from it.
///
/// Strong steering, and all steering of a tonal block, is followed fast; weaker steering at mid, slow or slower speed
/// by the group's three thresholds. With three output channels the fast, mid and slow speeds do not follow to the back.
///
/// In      steerLR, steerFB, thres, midThres, slowThres [16], tonalBlock, outputChannels, slower, slow, mid, fast
/// In/Out  lrSlower ... fbFast [16]              all four of a group hold the chosen place afterwards
/// Out     usedFast, usedMid, usedSlow           speed of the last group, all 0 for slower
///         meanLRFast                            mean of the groups' lrFast before the choice, group ascending
void selectSpeeds(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
