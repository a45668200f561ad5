// Checks cue points, loops, labels and iXML.
// SPDX-License-Identifier: MIT
#include "cli/chunk_checks.h"

#include <cstddef>
#include <cstdint>
#include <memory>

#include <expat.h>

namespace tarn
{

namespace
{

std::uint32_t numberAt(const std::string& bytes, std::size_t at)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i > 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[at + i - 1]);
    return value;
}

/// Whether a list of 24-byte entries fits into a chunk.
///
/// head     bytes before the entries
/// countAt  position of their number
bool holdsEntries(const std::string& bytes, std::size_t head, std::size_t countAt)
{
    constexpr std::uint64_t kEntryBytes = 24;
    return bytes.size() >= head && bytes.size() - head >= numberAt(bytes, countAt) * kEntryBytes;
}

/// Whether the labels of a list, chunks inside the chunk, fill it.
bool holdsLabels(const std::string& list)
{
    constexpr std::size_t kHead = 8;
    constexpr std::size_t kCuePoint = 4; ///< bytes of the number of the cue point, with which every label begins
    std::size_t at = 4;
    while (at + kHead <= list.size()) {
        const std::uint64_t size = numberAt(list, at + 4);
        if (size < kCuePoint || size > list.size() - at - kHead) return false;
        at += kHead + size + size % 2;
    }
    return at >= list.size();
}

bool isWellFormed(const std::string& xml)
{
    const std::size_t end = xml.find_last_not_of('\0') + 1; // recorders pad it
    const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr), XML_ParserFree);
    return parser != nullptr && XML_Parse(parser.get(), xml.data(), static_cast<int>(end), 1) == XML_STATUS_OK;
}

} // namespace

bool isValid(const Chunk& chunk)
{
    if (chunk.name == "cue ") return holdsEntries(chunk.contents, 4, 0);
    if (chunk.name == "smpl") return holdsEntries(chunk.contents, 36, 28);
    if (chunk.name == "LIST") return holdsLabels(chunk.contents);
    return chunk.name != "iXML" || isWellFormed(chunk.contents);
}

} // namespace tarn
