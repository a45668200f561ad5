// Parser for the headers of MPEG audio frames.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/byte_range.h"
#include "cli/file_bytes.h"

#include <cstdint>
#include <optional>

namespace tarn
{

/// Properties of an MPEG audio frame, from its header.
struct MpegFrame
{
    std::uint32_t kind = 0;            ///< header bits that all frames of a stream share
    std::uint64_t bytes = 0;           ///< size
    std::uint64_t samples = 0;         ///< per channel
    std::uint64_t sideInformation = 0; ///< offset of the index in an index frame
};

/// Parses the header at a position (ISO 11172-3, 2.4.1.3, and its extension to lower rates). Returns none for
/// free-format frames, which do not declare their length.
std::optional<MpegFrame> mpegFrameAt(const FileBytes& file, std::uint64_t position);

/// The position of the next frame that is followed by another of its kind; limit if there is none before it.
std::uint64_t nextMpegFrame(const FileBytes& file, std::uint64_t position, std::uint64_t limit);

/// Frames of MPEG audio that a decoder skips.
struct MpegDamage
{
    std::uint64_t frames = 0;       ///< complete frames, with an index frame
    std::uint64_t lostFrames = 0;   ///< between other frames, estimated from the bytes there
    std::uint64_t firstLost = 0;    ///< number of frames before the first of them
    std::uint64_t frameSamples = 0; ///< per channel and frame
    bool endsInsideFrame = false;   ///< the last frame is incomplete
    std::uint64_t end = 0;          ///< position after the last frame
};

/// The position after the audio: where the tags at the end of a file begin.
std::uint64_t mpegAudioEnd(const FileBytes& file);

/// Walks the frames of a part and finds damage. Tags, indexes and zeros between frames are not damage.
MpegDamage findMpegDamage(int descriptor, ByteRange part);

} // namespace tarn
