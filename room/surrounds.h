// The state of the surround channels of a stream.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/all_pass.h"

#include <cstdint>

namespace zrk_tarn
{

/// Surround channels from the steered difference: left minus right, weighted per band group so that the dominant source
/// of the group cancels. What remains is the ambience.
///
/// The weights follow from the covariances of left and right in a group. The difference is transformed back to samples,
/// and all-pass chains make decorrelated channels of it. It is late by about 8 ms, so that the weights know a source
/// before it sounds, and the fronts arrive first. The chains delay it by 15.5 ms more on average, those of the second
/// pair by 12 ms.
///
/// Chains 0 and 1 are the left and right channel of the first pair, 2 and 3 those of the second pair. All members are
/// state that callers may read; renderSurrounds depends on nothing else. Arrays are aligned like the widest vectors.
struct Surrounds
{
    static constexpr std::int32_t kMaxLookAhead = 24;
    static constexpr std::int32_t kChains = 4;

    // Settings
    float smoothing[2]{};         ///< pair (alpha, 1 - alpha) of the covariances, per block
    std::int32_t lookAhead = 1;   ///< blocks, 1 to kMaxLookAhead
    std::int32_t chainsInUse = 2; ///< 2 or 4
    std::int32_t nextPast = 0;    ///< oldest block of past; state, here for the alignment
    AllPass chain[kChains][2]{};  ///< sections of each chain

    // Covariances of the groups, full scale about 1, and the weights that follow from them
    alignas(64) float leftLeft[16]{}; ///< smoothed sum of L L over the bands of a group
    float rightRight[16]{};           ///< smoothed sum of R R
    float leftRight[16]{};            ///< smoothed sum of L R
    float leftWeight[16]{};           ///< of the delayed left, 0 to 1
    float rightWeight[16]{};          ///< of the delayed right, 0 to 1

    // The difference
    alignas(64) float past[kMaxLookAhead][2][64]{}; ///< ring of left and right subbands, in blocks
    alignas(64) float difference[64]{};             ///< subbands, engine scale

    // Synthesis, as that of an output of the engine
    float dctEven[1][32]{};      ///< transform input, scratch
    float dctOdd[1][32]{};       ///< transform input, scratch
    float synthHistory[1024]{};  ///< newest block first
    float overlapNow[64]{};      ///< sums of the next block
    float overlapNext[64]{};     ///< sums of the block after it
    float output[kChains][64]{}; ///< samples of the chains in use, engine scale
};

/// Clears the state and sets it up for a stream. Real-time safe.
///
/// sampleRateHz  a rate that the engine supports
/// pairs         of channels: 1 or 2
void configureSurrounds(Surrounds& surrounds, std::uint32_t sampleRateHz, std::int32_t pairs) noexcept;

} // namespace zrk_tarn
