#pragma once

#include "cli/file_bytes.h"

#include <cstdint>
#include <optional>

namespace tarn
{

/// How much audio a file's header promises, and how much of it is there.
struct AudioBytes
{
    std::uint64_t promised;
    std::uint64_t present;
};

/// Reads the size of the audio data in WAVE, RF64, W64, AIFF, AU and CAF files, where the decoder takes a file that
/// ends early for a shorter one.
///
/// file  a whole file, or the part that was one before others were joined to it
/// Returns nothing for other containers, for headers without audio data, and for the sizes that programs write which
/// stream to a pipe and cannot know the length.
std::optional<AudioBytes> promisedAudio(const FileBytes& file);

/// The data chunk of a CAF file that ends inside it.
struct CutChunk
{
    std::uint64_t sizeAt = 0;  ///< position of its size, 64 bits
    std::uint64_t present = 0; ///< bytes of its contents
};

/// Finds the data chunk of a CAF file if its size is greater than what is there, or unknown.
std::optional<CutChunk> cutCafData(const FileBytes& file);

/// The position behind a WAVE, RF64, W64, AIFF, AU or CAF file that begins at a position, as its sizes declare it,
/// where another one begins. Nothing if none does.
std::optional<std::uint64_t> nextContainer(const FileBytes& file, std::uint64_t begin);

/// Whether the MPEG audio stream at a position begins with an index frame, which holds the number of its frames.
///
/// Without one, a decoder can only estimate it.
bool hasMpegIndex(int descriptor, std::uint64_t position);

} // namespace tarn
