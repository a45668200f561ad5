// The outputs of an upmix as a picture sees them.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// The place of an output around the listener.
enum class ChannelPlace : std::uint8_t
{
    Left,
    Right,
    Centre,
    LeftBehind,  ///< at the left side or behind
    RightBehind, ///< at the right side or behind
    Bass         ///< the LFE channel
};

/// An output of an upmix.
struct PictureChannel
{
    std::string name; ///< "FL"
    ChannelPlace place = ChannelPlace::Left;
    std::uint32_t slot = 0; ///< in a frame of interleaved samples
};

/// What a picture shows.
struct PictureSource
{
    std::uint32_t sampleRate = 0;         ///< Hz
    std::uint32_t slots = 0;              ///< samples in a frame
    std::vector<PictureChannel> channels; ///< outputs to draw, in the order of their lanes
};

} // namespace tarn
