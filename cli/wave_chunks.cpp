// Reads markers, iXML and cart chunks and converts their sample counts.
// SPDX-License-Identifier: MIT
#include "cli/wave_chunks.h"

#include "cli/chunk_checks.h"
#include "cli/stream_format.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <string_view>

namespace tarn
{

namespace
{

constexpr std::size_t kCartTimers = 684; ///< offset of eight pairs of a mark and a frame count
constexpr std::size_t kCartTimersEnd = kCartTimers + std::size_t{8} * 8;

/// Chunks of WAVE and W64 that describe the file format or are read as tags.
constexpr std::array<std::string_view, 12> kFormatAndTags{"ds64", "fmt ", "fact", "data", "PEAK", "levl",
                                                          "JUNK", "junk", "PAD ", "FLLR", "id3 ", "ID3 "};

/// The same of AIFF and CAF.
constexpr std::array<std::string_view, 15> kOtherFormatAndTags{"COMM", "SSND", "FVER", "CHAN", "NAME",
                                                               "AUTH", "(c) ", "ANNO", "desc", "chan",
                                                               "kuki", "pakt", "free", "info", "peak"};

/// Chunks that readWaveChunks reads by their names.
constexpr std::array<std::string_view, 5> kReadChunks{"iXML", "cart", "cue ", "LIST", "smpl"};

template <std::size_t count>
bool contains(const std::array<std::string_view, count>& names, std::string_view name)
{
    return std::ranges::find(names, name) != names.end();
}

void addName(std::vector<std::string>& names, const std::string& name)
{
    if (std::ranges::find(names, name) == names.end()) names.push_back(name);
}

/// Whether a chunk can be copied. Binary chunks of big-endian files cannot.
bool isKept(const Chunk& chunk, bool bigEndian)
{
    if (chunk.contents.empty()) return false;
    if (chunk.name == "iXML") return true;
    return !bigEndian && (chunk.name != "LIST" || chunk.contents.starts_with("adtl"));
}

/// Removes iXML elements, which have no attributes and are never nested in their own kind. Returns those found.
std::vector<std::string> removeElements(std::string& xml, std::initializer_list<const char*> names)
{
    std::vector<std::string> found;
    for (const std::string name : names) {
        const std::string start = "<" + name + ">";
        const std::string end = "</" + name + ">";
        std::string kept;
        std::size_t from = 0;
        while (true) {
            const std::size_t first = xml.find(start, from);
            const std::size_t last = first == std::string::npos ? first : xml.find(end, first);
            kept.append(xml, from, last == std::string::npos ? last : first - from);
            if (last == std::string::npos) break;
            from = last + end.size();
        }
        if (from > 0) found.push_back(name);
        xml = std::move(kept);
    }
    return found;
}

std::uint32_t numberAt(const std::string& bytes, std::size_t at)
{
    std::uint32_t number = 0;
    for (std::size_t i = 4; i > 0; --i) number = number << 8 | static_cast<unsigned char>(bytes[at + i - 1]);
    return number;
}

/// Stores a frame count in 32 bits, or the maximum.
void storeFrames(std::string& bytes, std::size_t at, std::uint64_t frames)
{
    frames = std::min<std::uint64_t>(frames, UINT32_MAX);
    for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(frames >> 8 * i & 0xff);
}

/// Positions of the frame counts in a valid chunk.
std::vector<std::size_t> markersIn(const Chunk& chunk)
{
    constexpr std::size_t kEntryBytes = 24;
    const std::string& bytes = chunk.contents;
    std::vector<std::size_t> markers;
    if (chunk.name == "cue ") {
        for (std::size_t point = 4; point < 4 + kEntryBytes * numberAt(bytes, 0); point += kEntryBytes) {
            // The position in the play list is the same if there is no play list.
            if (numberAt(bytes, point + 4) == numberAt(bytes, point + 20)) markers.push_back(point + 4);
            markers.push_back(point + 20);
        }
    } else if (chunk.name == "smpl") {
        for (std::size_t loop = 36; loop < 36 + kEntryBytes * numberAt(bytes, 28); loop += kEntryBytes)
            markers.insert(markers.end(), {loop + 8, loop + 12});
    } else if (chunk.name == "cart") {
        for (std::size_t timer = kCartTimers; timer < kCartTimersEnd && timer + 8 <= bytes.size(); timer += 8)
            if (numberAt(bytes, timer) != 0) markers.push_back(timer + 4);
    }
    return markers;
}

} // namespace

WaveChunks readWaveChunks(int descriptor, bool bigEndian)
{
    WaveChunks chunks;
    for (const std::string name : {"iXML", "cart", "cue ", "LIST", "smpl"}) {
        bool isFirst = true;
        for (std::string& contents : chunksNamed(descriptor, name)) {
            if (name == "LIST" && contents.starts_with("INFO")) continue;
            Chunk chunk{.name = name, .contents = std::move(contents)};
            if (!isFirst || !isKept(chunk, bigEndian)) {
                addName(chunks.leftOut, printedName(chunk));
                continue;
            }
            if (!isValid(chunk)) {
                addName(chunks.invalid, printedName(chunk));
                continue;
            }
            isFirst = false;
            if (name == "iXML") removeElements(chunk.contents, {"TRACK_LIST", "LOUDNESS", "BEXT", "FILE_UID"});
            chunks.kept.push_back(std::move(chunk));
        }
    }
    for (const std::string& name : chunkNames(descriptor))
        if (!contains(kFormatAndTags, name) && !contains(kReadChunks, name))
            addName(chunks.leftOut, printedName({.name = name, .contents = {}}));
    return chunks;
}

std::vector<std::string> otherChunkNames(int descriptor)
{
    std::vector<std::string> names;
    for (const std::string& name : chunkNames(descriptor))
        if (!contains(kFormatAndTags, name) && !contains(kOtherFormatAndTags, name))
            addName(names, printedName({.name = name, .contents = {}}));
    return names;
}

bool hasMarkers(const Chunk& chunk)
{
    return chunk.name == "cue " || chunk.name == "LIST" || chunk.name == "smpl";
}

std::string printedName(const Chunk& chunk)
{
    std::string name = chunk.name == "LIST" ? "LIST " + chunk.contents.substr(0, 4) : chunk.name;
    return name.erase(name.find_last_not_of(' ') + 1);
}

std::vector<std::string> convertRate(Chunk& chunk, std::uint32_t rate, std::uint32_t newRate)
{
    if (chunk.name == "iXML") return removeElements(chunk.contents, {"SPEED", "SYNC_POINT_LIST"});
    for (const std::size_t at : markersIn(chunk))
        storeFrames(chunk.contents, at, framesAtRate(numberAt(chunk.contents, at), rate, newRate));
    return {};
}

// cppcheck-suppress constParameter ; its contents change
void delayMarkers(Chunk& chunk, std::uint32_t frames)
{
    for (const std::size_t at : markersIn(chunk))
        storeFrames(chunk.contents, at, std::uint64_t{numberAt(chunk.contents, at)} + frames);
}

} // namespace tarn
