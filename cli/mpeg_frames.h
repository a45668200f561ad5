#pragma once

#include "cli/file_bytes.h"

#include <cstdint>
#include <optional>

namespace tarn
{

/// An MPEG audio frame, as its header describes it.
struct MpegFrame
{
    std::uint32_t kind = 0;            ///< the bits of the header that all frames of a stream share
    std::uint64_t bytes = 0;           ///< size
    std::uint64_t sideInformation = 0; ///< bytes between the start of the frame and what an index frame has there
};

/// Reads the header at a position (ISO 11172-3, 2.4.1.3, and its extension to lower rates). Frames of free format,
/// which do not say how long they are, are none.
std::optional<MpegFrame> mpegFrameAt(const FileBytes& file, std::uint64_t position);

/// The number of frames that an index frame at the position declares; 0 if it declares none, nothing if it is none.
std::optional<std::uint64_t> indexedFrames(const FileBytes& file, std::uint64_t position, const MpegFrame& frame);

/// The position of the next frame that another of its kind follows; limit if there is none before it.
std::uint64_t nextMpegFrame(const FileBytes& file, std::uint64_t position, std::uint64_t limit);

} // namespace tarn
