// Walks the chunks of audio containers.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/byte_range.h"
#include "cli/file_bytes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// The head of a chunk and the place of its contents.
struct ChunkHead
{
    std::string name;          ///< four characters
    std::uint64_t begin = 0;   ///< position of the name
    std::uint64_t sizeAt = 0;  ///< position of the size
    std::size_t sizeBytes = 0; ///< width of the size
    bool bigEndian = false;    ///< byte order of the size
    std::uint64_t counted = 0; ///< bytes before the contents that the size includes
    ByteRange contents;        ///< as declared: can end beyond the file
};

/// The chunks of a container.
struct ChunkList
{
    std::vector<ChunkHead> chunks; ///< in file order, with those after the gap
    std::uint64_t end = 0;         ///< position after the last chunk before the gap
    std::uint64_t resumed = 0;     ///< position of the first chunk after the gap; the size of the file if there is none
};

/// Lists the chunks of the WAVE, RF64, W64, AIFF or CAF file that begins at a position. The list ends at the first
/// bytes that are not the head of a chunk: a name of four printable characters, and a size that fits into the file.
/// Chunks with the names of the format can exceed the file, which is then cut.
///
/// If the declared size of the audio is wrong, other bytes follow the audio chunk: the gap. The chunks after it begin
/// in the last 16 MiB, and the last of them ends with the file.
///
/// Throws std::runtime_error if there are more than 4096 chunks; Interrupted.
ChunkList listChunks(const FileBytes& file, std::uint64_t begin);

/// The position of the first chunk other than audio that declares 2 GiB or more; the size of the file if there is none.
/// libsndfile takes such a size for a negative one, and could read the same bytes forever.
std::uint64_t firstHugeChunk(const FileBytes& file, std::uint64_t begin);

} // namespace tarn
