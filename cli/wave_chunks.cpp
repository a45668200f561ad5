// Reads iXML and cart chunks and converts their sample counts.
// SPDX-License-Identifier: MIT
#include "cli/wave_chunks.h"

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

/// Whether a chunk describes the file format or is read as a tag.
bool isFormatOrTag(const std::string& name)
{
    constexpr std::array kNames{"ds64", "fmt ", "fact", "data", "PEAK", "levl", "JUNK",
                                "junk", "PAD ", "FLLR", "LIST", "id3 ", "ID3 "};
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end();
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

/// Converts a 32-bit frame count.
void convertFrames(std::string& bytes, std::size_t at, std::uint32_t rate, std::uint32_t newRate)
{
    std::uint64_t frames = 0;
    for (std::size_t i = 4; i > 0; --i) frames = frames << 8 | static_cast<unsigned char>(bytes[at + i - 1]);
    frames = std::min<std::uint64_t>(framesAtRate(frames, rate, newRate), UINT32_MAX);
    for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(frames >> 8 * i & 0xff);
}

} // namespace

WaveChunks readWaveChunks(int descriptor, bool bigEndian)
{
    WaveChunks chunks;
    const auto leaveOut = [&chunks](std::string name) {
        name.erase(name.find_last_not_of(' ') + 1);
        if (std::find(chunks.leftOut.begin(), chunks.leftOut.end(), name) == chunks.leftOut.end())
            chunks.leftOut.push_back(name);
    };
    for (const std::string name : {"iXML", "cart"}) {
        for (std::string& contents : chunksNamed(descriptor, name)) {
            const bool isFirst = chunks.kept.empty() || chunks.kept.back().name != name;
            if (!isFirst || contents.empty() || (name == "cart" && bigEndian)) {
                leaveOut(name);
                continue;
            }
            if (name == "iXML") removeElements(contents, {"TRACK_LIST", "LOUDNESS", "BEXT", "FILE_UID"});
            chunks.kept.push_back({.name = name, .contents = std::move(contents)});
        }
    }
    for (const std::string& list : chunksNamed(descriptor, "LIST"))
        if (!list.starts_with("INFO")) leaveOut("LIST " + list.substr(0, 4));
    for (const std::string& name : chunkNames(descriptor))
        if (!isFormatOrTag(name) && name != "iXML" && name != "cart") leaveOut(name);
    return chunks;
}

std::vector<std::string> convertRate(Chunk& chunk, std::uint32_t rate, std::uint32_t newRate)
{
    if (chunk.name == "iXML") return removeElements(chunk.contents, {"SPEED", "SYNC_POINT_LIST"});
    for (std::size_t timer = kCartTimers; timer < kCartTimersEnd && timer + 8 <= chunk.contents.size(); timer += 8)
        convertFrames(chunk.contents, timer + 4, rate, newRate);
    return {};
}

} // namespace tarn
