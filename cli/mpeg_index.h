// Reads, checks and repairs the index frame of MPEG audio.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/byte_range.h"
#include "cli/file_bytes.h"
#include "cli/mpeg_frames.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tarn
{

/// The index frame of MPEG audio (Xing, Info or VBRI), which is silent and declares the number of the other frames.
struct MpegIndex
{
    std::uint64_t frames = 0;        ///< 0 if it declares no number, or if its checksum is wrong
    bool isDamaged = false;          ///< its checksum is wrong
    std::uint64_t delaySamples = 0;  ///< per channel, that a decoder removes from the start; 0 if unknown
    std::uint64_t framesAt = 0;      ///< position of the number of frames; 0 if there is none
    std::uint64_t declaredBytes = 0; ///< size of the stream with the index; 0 if unknown
    bool hasChecksum = false;
};

/// Reads the index frame at the position of a frame. Returns none if it is another frame.
std::optional<MpegIndex> mpegIndexAt(const FileBytes& file, std::uint64_t position, const MpegFrame& frame);

/// Reads the index frame at the start of a part, after an ID3v2 tag.
std::optional<MpegIndex> firstMpegIndex(const FileBytes& file);

/// A correction of a damaged index.
struct MpegIndexRepair
{
    std::uint64_t position = 0; ///< in the part
    std::string bytes;          ///< to substitute there; empty if it cannot be repaired
    std::string note;           ///< a clause about the damage
};

/// Counts the frames of a part if the number in its index is wrong: the checksum or the declared size shows that.
/// Returns none if the part has no index, or if its index is valid.
std::optional<MpegIndexRepair> repairMpegIndex(int descriptor, ByteRange part);

} // namespace tarn
