// Reads the declared length from WAVE, RF64, W64, AIFF, AU, CAF and MPEG headers.
// SPDX-License-Identifier: MIT
#include "cli/declared_length.h"

#include "cli/chunk_walk.h"
#include "cli/mpeg_frames.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tarn
{

namespace
{

/// The audio data of a container.
struct AudioData
{
    ChunkHead chunk;
    std::uint64_t offset = 0; ///< bytes of the contents before the samples
    std::uint64_t end = 0;    ///< position after the last chunk of the container
    std::uint64_t limit = 0;  ///< the maximum end of the audio: the next chunk, or the end of the file

    ByteRange samples() const
    {
        return {.begin = chunk.contents.begin + std::min(offset, chunk.contents.size()), .end = chunk.contents.end};
    }
};

/// Whether a size is near the maximum of the signed or unsigned range, as programs write to pipes.
///
/// bytes  width of the size
bool isPlaceholder(std::uint64_t size, std::size_t bytes)
{
    if (bytes == 8) return size >= (std::uint64_t{1} << 62);
    return (size >= 0x7ffff000 && size <= 0x80000000) || (size >= 0xffffff00 && size <= 0xffffffff);
}

bool isPlaceholder(const ChunkHead& chunk)
{
    return isPlaceholder(chunk.contents.size(), chunk.sizeBytes);
}

/// Reads the fixed header of AU: mark, position of the audio, its size.
AudioData auData(const FileBytes& file, bool bigEndian)
{
    const std::uint64_t begin = file.number(4, 4, bigEndian);
    const std::uint64_t end = begin + file.number(8, 4, bigEndian);
    return {.chunk = {.name = "data",
                      .begin = 0,
                      .sizeAt = 8,
                      .sizeBytes = 4,
                      .bigEndian = bigEndian,
                      .contents = {.begin = begin, .end = end}},
            .offset = 0,
            .end = end,
            .limit = file.size()};
}

bool isAu(const FileBytes& file)
{
    return file.marks(0, ".snd") || file.marks(0, "dns.");
}

/// Finds the audio data of a container.
std::optional<AudioData> audioData(const FileBytes& file)
{
    if (file.marks(0, ".snd")) return auData(file, true);
    if (file.marks(0, "dns.")) return auData(file, false);
    const ChunkList list = listChunks(file, file.id3v2Size(0));
    for (const ChunkHead& chunk : list.chunks) {
        const bool isCaf = file.marks(0, "caff");
        if (chunk.name == "SSND" || chunk.name == "data")
            return AudioData{.chunk = chunk,
                             .offset = chunk.name == "SSND" ? 8u
                                       : isCaf              ? 4u
                                                            : 0u,
                             .end = list.end,
                             .limit = list.resumed};
    }
    return std::nullopt;
}

/// Whether bytes are tags, text or other files instead of audio.
bool isOtherData(const FileBytes& file, std::uint64_t position)
{
    constexpr std::uint64_t kTextBytes = 64;
    for (const std::string_view mark : {"TAG", "ID3", "APETAGEX", "LYRICSBEGIN"})
        if (file.marks(position, mark)) return true;
    bool isText = true;
    for (std::uint64_t i = 0; i < kTextBytes && position + i < file.size(); ++i) {
        const std::uint64_t byte = file.number(position + i, 1, true);
        isText = isText && ((byte >= 0x20 && byte <= 0x7e) || (byte >= '\t' && byte <= '\r'));
    }
    return isText || !fileKindAt(file, position).empty();
}

/// Whether audio follows the declared audio data, up to the end of the file or to its last chunks.
bool isFollowedByAudio(const FileBytes& file, const AudioData& audio)
{
    constexpr std::uint64_t kMinBytes = 4096;                   ///< recorders write larger blocks
    constexpr std::uint64_t kMaxZeros = std::uint64_t{1} << 26; ///< six minutes of stereo; more are no recording
    const std::uint64_t end = audio.chunk.contents.end;
    const std::uint64_t padded = std::max(end, std::min(audio.end, end + 7));
    if (end >= audio.limit || audio.end > padded) return false;
    if (audio.samples().size() > 0 && audio.limit - end < kMinBytes) return false;
    if (isOtherData(file, end) || isOtherData(file, padded)) return false;
    const std::uint64_t limit = std::min(end + kMaxZeros, audio.limit);
    return file.skipZeros(end, limit) < limit;
}

/// Bytes that correct the size of the audio.
std::optional<Substitution> correctionOf(const FileBytes& file, const AudioData& audio)
{
    const ChunkHead& chunk = audio.chunk;
    if (chunk.contents.begin > file.size()) return std::nullopt;
    const bool isCutCaf = file.marks(0, "caff") && chunk.contents.end > file.size();
    const bool hasOtherChunks = isPlaceholder(chunk) && audio.limit < file.size();
    const bool isWrong = hasOtherChunks || isFollowedByAudio(file, audio);
    if (!isCutCaf && !isWrong) return std::nullopt;
    std::uint64_t size = audio.limit - chunk.contents.begin + chunk.counted;
    if (chunk.sizeBytes == 4 && size >= UINT32_MAX) {
        // These sizes make libsndfile read to the end of a file of 4 GiB or more. WAVE has none.
        if (!isAu(file) && chunk.name != "SSND") return std::nullopt;
        size = isAu(file) ? UINT32_MAX : 0;
    }
    Substitution correction{.position = chunk.sizeAt, .bytes = {}};
    for (std::size_t i = 0; i < chunk.sizeBytes; ++i) {
        const std::size_t byte = chunk.bigEndian ? chunk.sizeBytes - 1 - i : i;
        correction.bytes += static_cast<char>(size >> 8 * byte & 0xff);
    }
    return correction;
}

bool isContainer(const FileBytes& file, std::uint64_t at)
{
    const bool isWave = file.marks(at, "RIFF") || file.marks(at, "RIFX") || file.marks(at, "RF64");
    const bool isAiff = file.marks(at, "FORM");
    return (isWave && file.marks(at + 8, "WAVE")) || (isAiff && file.marks(at + 8, "AIF")) ||
           file.marks(at, {"caff\0\1", 6}) || file.marks(at, "riff\x2e\x91\xcf\x11") || file.marks(at, ".snd") ||
           file.marks(at, "dns.");
}

/// The declared end of a container; 0 if unknown.
std::uint64_t declaredEnd(const FileBytes& file, std::uint64_t begin)
{
    const auto endAfter = [&](std::uint64_t header, std::uint64_t size) {
        return isPlaceholder(size, 4) || size >= file.size() ? 0 : begin + header + size;
    };
    const bool isSwappedAu = file.marks(begin, "dns.");
    if (file.marks(begin, "RF64"))
        return file.marks(begin + 12, "ds64") ? endAfter(8, file.number(begin + 20, 8, false)) : 0;
    if (file.marks(begin, "riff")) return endAfter(0, file.number(begin + 16, 8, false));
    if (file.marks(begin, "caff")) return listChunks(file, begin).end;
    if (isSwappedAu || file.marks(begin, ".snd"))
        return endAfter(file.number(begin + 4, 4, !isSwappedAu), file.number(begin + 8, 4, !isSwappedAu));
    return endAfter(8, file.number(begin + 4, 4, !file.marks(begin, "RIFF")));
}

} // namespace

std::optional<AudioBytes> declaredAudioBytes(const FileBytes& file)
{
    const auto audio = audioData(file);
    if (!audio || isPlaceholder(audio->chunk)) return std::nullopt;
    const ByteRange samples = audio->samples();
    // A declared size of 0 does not include the bytes before the samples.
    const std::uint64_t begin = audio->chunk.contents.begin + audio->offset;
    const std::uint64_t left = audio->limit - std::min(begin, audio->limit);
    const bool isStale = isFollowedByAudio(file, *audio);
    return AudioBytes{
        .declared = samples.size(), .present = isStale ? left : std::min(samples.size(), left), .isStale = isStale};
}

std::optional<Substitution> correctedSize(const FileBytes& file)
{
    const auto audio = audioData(file);
    return audio ? correctionOf(file, *audio) : std::nullopt;
}

bool exceedsItsSizes(const FileBytes& file)
{
    const auto audio = audioData(file);
    return audio && isFollowedByAudio(file, *audio) && !correctionOf(file, *audio);
}

std::optional<std::uint64_t> nextContainer(const FileBytes& file, std::uint64_t begin)
{
    if (!isContainer(file, begin)) return std::nullopt;
    // The size of the whole file can be wrong. Not all programs pad odd sizes.
    for (const std::uint64_t end : {declaredEnd(file, begin), listChunks(file, begin).end})
        for (const std::uint64_t next : {end, end + end % 2})
            if (next > begin && isContainer(file, next)) return next;
    return std::nullopt;
}

std::optional<std::uint64_t> audioEnd(const FileBytes& file)
{
    const auto audio = audioData(file);
    return audio ? std::optional(audio->chunk.contents.end) : std::nullopt;
}

std::optional<std::uint64_t> containerEnd(const FileBytes& file)
{
    const auto audio = audioData(file);
    return audio ? std::optional(audio->end) : std::nullopt;
}

std::string fileKindAt(const FileBytes& file, std::uint64_t position)
{
    const std::uint64_t at = position + file.id3v2Size(position);
    if (at >= file.size()) return {};
    if (file.marks(at, "fLaC")) return "a FLAC file";
    const bool isFirstPage = (file.number(at + 5, 1, true) & 2) != 0;
    if (file.marks(at, {"OggS\0", 5}) && isFirstPage) return "an Ogg file";
    if (file.marks(at, "FORM") && isContainer(file, at)) return "an AIFF file";
    if (file.marks(at, "riff") && isContainer(file, at)) return "a W64 file";
    if (file.marks(at, "caff") && isContainer(file, at)) return "a CAF file";
    if (file.marks(at, {".snd\0", 5})) return "an AU file";
    if (!file.marks(at, ".snd") && !file.marks(at, "dns.") && isContainer(file, at)) return "a WAV file";
    return nextMpegFrame(file, at, at + 1) == at ? "an MPEG audio file" : "";
}

} // namespace tarn
