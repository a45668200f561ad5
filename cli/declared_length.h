// The length of the audio data that the headers of audio files declare.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_bytes.h"

#include <cstdint>
#include <optional>

namespace tarn
{

/// Bytes of audio that the header of a file declares, and that the file has.
struct AudioBytes
{
    std::uint64_t declared;
    std::uint64_t present;
};

/// Reads the size of the audio data from the header of WAVE, RF64, W64, AIFF, AU and CAF files. The decoder does not
/// notice that such a file is cut.
///
/// file  a whole file, or one part of a joined file
/// Returns none for other containers, for headers without audio data, and for the placeholder sizes that programs write
/// to pipes.
std::optional<AudioBytes> declaredAudioBytes(const FileBytes& file);

/// The data chunk of a truncated CAF file.
struct TruncatedChunk
{
    std::uint64_t sizeAt = 0;  ///< position of its 64-bit size
    std::uint64_t present = 0; ///< bytes of contents in the file
};

/// Finds the data chunk of a CAF file if its size is unknown or exceeds the file.
std::optional<TruncatedChunk> truncatedCafData(const FileBytes& file);

/// The start of the next file in a joined WAVE, RF64, W64, AIFF, AU or CAF file: the declared end of the one at begin.
/// Returns none if no file starts there.
std::optional<std::uint64_t> nextContainer(const FileBytes& file, std::uint64_t begin);

/// Whether the MPEG audio stream at a position begins with an index frame, which declares the number of frames.
///
/// Without an index, a decoder can only estimate the length.
bool hasMpegIndex(int descriptor, std::uint64_t position);

} // namespace tarn
