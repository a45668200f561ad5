// Walks chunks by their names and sizes.
// SPDX-License-Identifier: MIT
#include "cli/chunk_walk.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace tarn
{

namespace
{

/// Limits the walk over a file of tiny chunks. Programs write fewer than 100.
constexpr std::size_t kMaxChunks = 4096;
constexpr std::uint64_t kMaxSize = std::uint64_t{1} << 62; ///< prevents overflow

/// Names of chunks that can be cut. Other names are recognised only if their chunk fits into the file.
constexpr std::array<std::string_view, 22> kKnownNames{"data", "SSND", "LIST", "id3 ", "ID3 ", "bext", "iXML", "cart",
                                                       "cue ", "fact", "fmt ", "ds64", "JUNK", "junk", "PAD ", "PEAK",
                                                       "smpl", "info", "free", "FLLR", "COMM", "MARK"};

/// Marks of audio files, which end the chunks of the file before them.
constexpr std::array<std::string_view, 8> kFileMarks{"RIFF", "RF64", "RIFX", "FORM", "caff", ".snd", "fLaC", "OggS"};

/// Names of the first chunk after a gap.
constexpr std::array<std::string_view, 13> kLastNames{"LIST", "list", "id3 ", "ID3 ", "bext", "iXML", "cart",
                                                      "cue ", "smpl", "info", "MARK", "COMT", "APPL"};

/// Form of the chunks in a container.
struct Form
{
    std::uint64_t head = 0;      ///< bytes of the container before the first chunk
    std::uint64_t nameBytes = 4; ///< only the first four are compared
    std::size_t sizeBytes = 4;   ///< width of the size
    bool bigEndian = false;      ///< byte order of the size
    bool sizeCountsHead = false; ///< the size includes name and size
    std::uint64_t alignment = 1; ///< of chunks, bytes
    std::string_view nameEnd{};  ///< the rest of all names
};

std::optional<Form> formAt(const FileBytes& file, std::uint64_t begin)
{
    constexpr std::string_view kW64NameEnd("\xf3\xac\xd3\x11\x8c\xd1\x00\xc0\x4f\x8e\xdb\x8a", 12);
    if (file.marks(begin, "RIFF") || file.marks(begin, "RF64")) return Form{.head = 12, .alignment = 2};
    if (file.marks(begin, "RIFX") || file.marks(begin, "FORM"))
        return Form{.head = 12, .bigEndian = true, .alignment = 2};
    if (file.marks(begin, "caff")) return Form{.head = 8, .sizeBytes = 8, .bigEndian = true};
    if (file.marks(begin, "riff"))
        return Form{.head = 40,
                    .nameBytes = 16,
                    .sizeBytes = 8,
                    .sizeCountsHead = true,
                    .alignment = 8,
                    .nameEnd = kW64NameEnd};
    return std::nullopt;
}

/// Reads the head of a chunk of any size. Returns none if other bytes are at the position.
std::optional<ChunkHead> anyHeadAt(const FileBytes& file, const Form& form, std::uint64_t at)
{
    const std::uint64_t begin = at + form.nameBytes + form.sizeBytes;
    if (begin > file.size()) return std::nullopt;
    std::string name;
    for (std::uint64_t i = 0; i < 4; ++i) name += static_cast<char>(file.number(at + i, 1, true));
    const bool isText = std::ranges::all_of(name, [](char c) { return c >= 0x20 && c <= 0x7e; });
    const bool isFile = std::ranges::find(kFileMarks, name) != kFileMarks.end();
    if (!isText || isFile || !file.marks(at + 4, form.nameEnd)) return std::nullopt;

    std::uint64_t size = file.number(at + form.nameBytes, form.sizeBytes, form.bigEndian);
    const std::uint64_t counted = form.sizeCountsHead ? begin - at : 0;
    if (size < counted) return std::nullopt;
    size = std::min(size - counted, kMaxSize);
    return ChunkHead{.name = name,
                     .begin = at,
                     .sizeAt = at + form.nameBytes,
                     .sizeBytes = form.sizeBytes,
                     .bigEndian = form.bigEndian,
                     .counted = counted,
                     .contents = {.begin = begin, .end = begin + size}};
}

/// Reads the head of a chunk that fits into the file or has a name that is known.
std::optional<ChunkHead> headAt(const FileBytes& file, const Form& form, std::uint64_t at)
{
    auto chunk = anyHeadAt(file, form, at);
    if (!chunk || chunk->contents.end <= file.size()) return chunk;
    return std::ranges::find(kKnownNames, chunk->name) != kKnownNames.end() ? chunk : std::nullopt;
}

bool isAudio(const ChunkHead& chunk)
{
    return chunk.name == "data" || chunk.name == "SSND";
}

/// Uses the 64-bit size of the audio, which RF64 declares in its first chunk.
void useLongSize(const FileBytes& file, const ChunkHead& first, ChunkHead& audio)
{
    constexpr std::uint64_t kDataSize = 8;
    if (first.name != "ds64" || audio.contents.size() != UINT32_MAX) return;
    audio.sizeAt = first.contents.begin + kDataSize;
    audio.sizeBytes = 8;
    audio.contents.end = audio.contents.begin + std::min(file.number(audio.sizeAt, 8, audio.bigEndian), kMaxSize);
}

/// The position of the chunk after this one.
std::uint64_t alignedEnd(const Form& form, std::uint64_t begin, const ChunkHead& chunk)
{
    const std::uint64_t used = chunk.contents.end - begin;
    return begin + (used + form.alignment - 1) / form.alignment * form.alignment;
}

/// Whether chunks lead from a position to the end of the file.
///
/// begin  of the container
bool leadToEnd(const FileBytes& file, const Form& form, std::uint64_t begin, std::uint64_t position)
{
    constexpr int kMaxSteps = 64;
    for (int i = 0; i < kMaxSteps; ++i) {
        const auto chunk = headAt(file, form, position);
        if (!chunk || chunk->contents.end > file.size()) return false;
        position = alignedEnd(form, begin, *chunk);
        if (chunk->contents.end == file.size() || position == file.size()) return true;
    }
    return false;
}

/// The position of the first chunk after the gap; the size of the file if there is none.
std::uint64_t findResumed(const FileBytes& file, const Form& form, std::uint64_t begin, std::uint64_t gap)
{
    constexpr std::uint64_t kMaxBytes = std::uint64_t{1} << 24;
    constexpr int kMaxTries = 1000;
    const std::uint64_t end = file.size();
    std::uint64_t at = file.findName(kLastNames, std::max(gap, end - std::min(end, kMaxBytes)), end);
    for (int tries = 0; at < end && tries < kMaxTries; ++tries) {
        if (leadToEnd(file, form, begin, at)) return at;
        at = file.findName(kLastNames, at + 1, end);
    }
    return end;
}

/// Whether bytes other than a chunk or a file follow the audio, or its declared size exceeds the file.
bool hasGap(const FileBytes& file, const ChunkList& list)
{
    if (list.chunks.empty()) return false;
    const ChunkHead& last = list.chunks.back();
    if (!isAudio(last)) return false;
    if (last.contents.end > file.size()) return last.contents.begin < file.size();
    return list.end < file.size() && std::ranges::none_of(kFileMarks, [&](std::string_view mark) {
               return file.marks(list.end, mark) || file.marks(last.contents.end, mark);
           });
}

} // namespace

ChunkList listChunks(const FileBytes& file, std::uint64_t begin)
{
    ChunkList list{.chunks = {}, .end = begin, .resumed = file.size()};
    const auto form = formAt(file, begin);
    if (!form) return list;
    list.end = begin + form->head;
    // Not all programs pad odd sizes.
    std::uint64_t unpadded = list.end;
    const auto addChunks = [&](std::uint64_t& end) {
        while (true) {
            auto chunk = headAt(file, *form, end);
            if (!chunk && unpadded != end) chunk = headAt(file, *form, unpadded);
            if (!chunk) break;
            if (list.chunks.size() == kMaxChunks)
                throw std::runtime_error("it has more than " + std::to_string(kMaxChunks) + " chunks");
            list.chunks.push_back(*chunk);
            if (chunk->name == "data") useLongSize(file, list.chunks.front(), list.chunks.back());
            unpadded = list.chunks.back().contents.end;
            end = alignedEnd(*form, begin, list.chunks.back());
        }
    };
    addChunks(list.end);
    if (!hasGap(file, list)) return list;
    const ByteRange& audio = list.chunks.back().contents;
    list.resumed = findResumed(file, *form, begin, audio.end > file.size() ? audio.begin : audio.end);
    std::uint64_t end = unpadded = list.resumed;
    addChunks(end);
    return list;
}

std::uint64_t firstHugeChunk(const FileBytes& file, std::uint64_t begin)
{
    constexpr std::uint64_t kHuge = std::uint64_t{1} << 31;
    const auto form = formAt(file, begin);
    if (!form) return file.size();
    ChunkList list = listChunks(file, begin);
    if (const auto next = anyHeadAt(file, *form, list.end)) list.chunks.push_back(*next);
    const auto found = std::ranges::find_if(list.chunks, [&](const ChunkHead& chunk) {
        return !isAudio(chunk) && chunk.contents.size() + chunk.counted + form->alignment > kHuge;
    });
    return found == list.chunks.end() ? file.size() : found->begin;
}

} // namespace tarn
