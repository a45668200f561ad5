// Generated music for measurements.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tests
{

inline constexpr std::size_t kBlockFrames = 64;

/// Blocks until the music repeats; too many for a branch predictor to learn.
inline constexpr std::size_t kMusicBlocks = 4096;

/// Interleaved stereo that resembles music: two low-passed noise voices and repeated decaying tones at different
/// positions, with a level that changes by +-10 dB over 256 blocks. Full scale is 32 bits.
///
/// The same in every run. Returns kMusicBlocks * kBlockFrames frames.
std::span<const std::int32_t> music();

} // namespace tests
