#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace speed
{

inline constexpr std::size_t kBlockFrames = 64;

/// Blocks of music until it repeats; more than a branch predictor can learn by heart.
inline constexpr std::size_t kMusicBlocks = 4096;

/// Interleaved stereo that moves like music: two low-passed noise voices and a tone that decays and is struck again,
/// each with a place of its own, and a loudness that rises and falls by 10 dB over 256 blocks. Full scale is 32 bits.
///
/// The same in every run. Returns kMusicBlocks * kBlockFrames frames.
std::span<const std::int32_t> music();

} // namespace speed
