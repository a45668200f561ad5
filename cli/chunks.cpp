// Reads the chunks of WAVE, RF64, W64, AIFF and CAF files.
// SPDX-License-Identifier: MIT
#include "cli/chunks.h"

#include "cli/chunk_walk.h"

#include <cstdint>

#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::uint64_t kMaxBytes = std::uint64_t{1} << 24;

/// The chunks with contents.
std::vector<ChunkHead> chunksIn(int descriptor)
{
    const FileBytes file(descriptor);
    std::vector<ChunkHead> chunks = listChunks(file, file.id3v2Size(0)).chunks;
    std::erase_if(chunks, [](const ChunkHead& chunk) { return chunk.contents.size() == 0; });
    return chunks;
}

/// Bytes of a file; none if the file ends before.
std::string bytesAt(int descriptor, ByteRange range)
{
    std::string bytes(range.size(), '\0');
    const ssize_t got = pread(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(range.begin));
    return got == static_cast<ssize_t>(bytes.size()) ? bytes : std::string();
}

} // namespace

std::vector<std::string> chunkNames(int descriptor)
{
    std::vector<std::string> names;
    for (const ChunkHead& chunk : chunksIn(descriptor)) names.push_back(chunk.name);
    return names;
}

std::vector<std::string> chunksNamed(int descriptor, const std::string& name)
{
    std::vector<std::string> found;
    std::uint64_t room = kMaxBytes;
    for (const ChunkHead& chunk : chunksIn(descriptor)) {
        if (chunk.name != name) continue;
        found.push_back(chunk.contents.size() <= room ? bytesAt(descriptor, chunk.contents) : std::string());
        room -= found.back().size();
    }
    return found;
}

} // namespace tarn
