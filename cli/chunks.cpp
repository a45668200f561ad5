// Walks the chunks of WAVE, RF64 and CAF files.
// SPDX-License-Identifier: MIT
#include "cli/chunks.h"

#include "cli/byte_range.h"
#include "cli/file_bytes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::size_t kMaxChunks = 4096;
constexpr std::uint64_t kMaxBytes = std::uint64_t{1} << 24;
constexpr std::uint64_t kNameBytes = 4;

struct ChunkLocation
{
    std::string name;
    ByteRange contents;
};

std::string nameAt(const FileBytes& file, std::uint64_t position)
{
    std::string name;
    for (std::uint64_t i = 0; i < kNameBytes; ++i) name += static_cast<char>(file.number(position + i, 1, true));
    return name;
}

constexpr std::array<std::string_view, 3> kRiffMarks{"RIFF", "RF64", "RIFX"};

/// Whether a chunk can begin with these characters: other bytes, or the mark of a next file, end the chunks.
bool isChunkName(std::string_view name)
{
    return std::ranges::all_of(name, [](char c) { return c >= 0x20 && c <= 0x7e; }) &&
           std::ranges::find(kRiffMarks, name) == kRiffMarks.end();
}

/// Finds chunks from a position on. A chunk is a name, a size and the contents, padded to an even size in RIFF. The
/// first chunk of RF64 holds the size of the audio.
std::vector<ChunkLocation> chunksFrom(const FileBytes& file, std::uint64_t at, std::size_t sizeBytes, bool bigEndian)
{
    const std::uint64_t head = kNameBytes + sizeBytes;
    const std::uint64_t rf64Size = file.marks(at, "ds64") ? file.number(at + head + 8, 8, bigEndian) : UINT32_MAX;
    std::vector<ChunkLocation> chunks;
    while (at + head <= file.size() && chunks.size() < kMaxChunks) {
        const std::string name = nameAt(file, at);
        if (!isChunkName(name)) break;
        std::uint64_t size = file.number(at + kNameBytes, sizeBytes, bigEndian);
        if (sizeBytes == 4 && size == UINT32_MAX && file.marks(at, "data")) size = rf64Size;
        size = std::min(size, file.size()); // prevents overflow
        at += head;
        if (size > 0) chunks.push_back({.name = name, .contents = {.begin = at, .end = at + size}});
        at += size + (sizeBytes == 4 ? size % 2 : 0);
    }
    return chunks;
}

std::vector<ChunkLocation> chunksIn(int descriptor)
{
    constexpr std::uint64_t kRiffHead = 12;
    constexpr std::uint64_t kCafHead = 8;
    const FileBytes file(descriptor);
    const std::uint64_t begin = file.id3v2Size(0);
    for (const std::string_view mark : kRiffMarks)
        if (file.marks(begin, mark)) return chunksFrom(file, begin + kRiffHead, 4, mark == "RIFX");
    if (file.marks(begin, "caff")) return chunksFrom(file, begin + kCafHead, 8, true);
    return {};
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
    for (const ChunkLocation& location : chunksIn(descriptor)) names.push_back(location.name);
    return names;
}

std::vector<std::string> chunksNamed(int descriptor, const std::string& name)
{
    std::vector<std::string> found;
    std::uint64_t room = kMaxBytes;
    for (const auto& [chunkName, range] : chunksIn(descriptor)) {
        if (chunkName != name) continue;
        found.push_back(range.size() <= room ? bytesAt(descriptor, range) : std::string());
        room -= found.back().size();
    }
    return found;
}

} // namespace tarn
