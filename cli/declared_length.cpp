// Reads the declared length from WAVE, RF64, W64, AIFF, AU, CAF and MPEG headers.
// SPDX-License-Identifier: MIT
#include "cli/declared_length.h"

#include "cli/file_bytes.h"

#include <algorithm>
#include <string_view>

namespace tarn
{

namespace
{

AudioBytes audioAt(const FileBytes& file, std::uint64_t position, std::uint64_t declared)
{
    const std::uint64_t left = file.size() - std::min(position, file.size());
    return {.declared = declared, .present = std::min(declared, left)};
}

/// Whether a size is near the maximum of the signed or unsigned range, as programs write to pipes.
bool isPlaceholder(std::uint64_t size)
{
    return (size >= 0x7ffff000 && size <= 0x80000000) || (size >= 0xffffff00 && size <= 0xffffffff);
}

/// Searches chunks with a four-letter mark and a 32-bit size, padded to even sizes, from position 12.
///
/// audioOffset  bytes of the audio chunk before the samples
std::optional<AudioBytes> declaredInChunks(const FileBytes& file, std::string_view audioMark, std::uint64_t audioOffset,
                                           bool bigEndian)
{
    const bool isRf64 = file.marks(0, "RF64");
    std::uint64_t rf64Size = 0;
    for (std::uint64_t at = 12; at + 8 <= file.size();) {
        const std::uint64_t size = file.number(at + 4, 4, bigEndian);
        if (isRf64 && file.marks(at, "ds64")) rf64Size = file.number(at + 16, 8, bigEndian);
        if (file.marks(at, audioMark)) {
            if (isRf64 && size == 0xffffffff) return audioAt(file, at + 8, rf64Size);
            if (isPlaceholder(size)) return std::nullopt;
            return audioAt(file, at + 8 + audioOffset, size - std::min(audioOffset, size));
        }
        at += 8 + size + size % 2;
    }
    return std::nullopt;
}

/// Searches chunks with a 16-byte mark and a 64-bit size that includes this header, padded to 8 bytes.
std::optional<AudioBytes> declaredInW64(const FileBytes& file)
{
    constexpr std::uint64_t kHeader = 24;
    for (std::uint64_t at = 40; at + kHeader <= file.size();) {
        const std::uint64_t size = file.number(at + 16, 8, false);
        if (size < kHeader || size > (std::uint64_t{1} << 62)) return std::nullopt;
        if (file.marks(at, "data")) return audioAt(file, at + kHeader, size - kHeader);
        at += (size + 7) / 8 * 8;
    }
    return std::nullopt;
}

/// Reads a fixed header: mark, position of the audio, its size.
std::optional<AudioBytes> declaredInAu(const FileBytes& file, bool bigEndian)
{
    const std::uint64_t size = file.number(8, 4, bigEndian);
    if (isPlaceholder(size)) return std::nullopt;
    return audioAt(file, file.number(4, 4, bigEndian), size);
}

/// The position of the first CAF chunk with a mark, searched from a chunk on; the end of the file if there is none. A
/// chunk is a mark, a 64-bit size and the contents.
std::uint64_t cafChunk(const FileBytes& file, std::uint64_t at, std::string_view mark)
{
    while (at < file.size() && !file.marks(at, mark)) {
        const std::uint64_t size = file.number(at + 4, 8, true);
        if (size >= file.size()) return file.size();
        at += 12 + size;
    }
    return at;
}

std::optional<AudioBytes> declaredInCaf(const FileBytes& file)
{
    constexpr std::uint64_t kEditCount = 4; ///< bytes before the samples
    const std::uint64_t at = cafChunk(file, 8, "data");
    const std::uint64_t size = file.number(at + 4, 8, true);
    if (at >= file.size() || size < kEditCount || size > (std::uint64_t{1} << 62)) return std::nullopt;
    return audioAt(file, at + 12 + kEditCount, size - kEditCount);
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
        return isPlaceholder(size) || size >= file.size() ? 0 : begin + header + size;
    };
    const bool isSwappedAu = file.marks(begin, "dns.");
    if (file.marks(begin, "RF64"))
        return file.marks(begin + 12, "ds64") ? endAfter(8, file.number(begin + 20, 8, false)) : 0;
    if (file.marks(begin, "riff")) return endAfter(0, file.number(begin + 16, 8, false));
    if (file.marks(begin, "caff")) return cafChunk(file, begin + 8, "caff");
    if (isSwappedAu || file.marks(begin, ".snd"))
        return endAfter(file.number(begin + 4, 4, !isSwappedAu), file.number(begin + 8, 4, !isSwappedAu));
    return endAfter(8, file.number(begin + 4, 4, !file.marks(begin, "RIFF")));
}

} // namespace

std::optional<AudioBytes> declaredAudioBytes(const FileBytes& file)
{
    if (file.marks(0, "RIFF") || file.marks(0, "RF64")) return declaredInChunks(file, "data", 0, false);
    if (file.marks(0, "RIFX")) return declaredInChunks(file, "data", 0, true);
    if (file.marks(0, "FORM")) return declaredInChunks(file, "SSND", 8, true);
    if (file.marks(0, "riff")) return declaredInW64(file);
    if (file.marks(0, ".snd")) return declaredInAu(file, true);
    if (file.marks(0, "dns.")) return declaredInAu(file, false);
    if (file.marks(0, "caff")) return declaredInCaf(file);
    return std::nullopt;
}

std::optional<TruncatedChunk> truncatedCafData(const FileBytes& file)
{
    if (!file.marks(0, "caff")) return std::nullopt;
    const std::uint64_t at = cafChunk(file, 8, "data");
    if (at + 12 > file.size() || file.number(at + 4, 8, true) <= file.size() - at - 12) return std::nullopt;
    return TruncatedChunk{.sizeAt = at + 4, .present = file.size() - at - 12};
}

std::optional<std::uint64_t> nextContainer(const FileBytes& file, std::uint64_t begin)
{
    if (!isContainer(file, begin)) return std::nullopt;
    const std::uint64_t end = declaredEnd(file, begin);
    // Not all programs pad odd sizes.
    for (const std::uint64_t next : {end, end + end % 2})
        if (next > begin && isContainer(file, next)) return next;
    return std::nullopt;
}

bool hasMpegIndex(int descriptor, std::uint64_t position)
{
    const FileBytes file(descriptor);
    const std::uint64_t start = position + file.id3v2Size(position);

    // The mark follows the header, checksum and side information of the first frame: 11 to 38 bytes.
    constexpr std::uint64_t kSearchBytes = 64;
    for (std::uint64_t i = 0; i < kSearchBytes; ++i)
        for (const std::string_view mark : {"Xing", "Info", "VBRI"})
            if (file.marks(start + i, mark)) return true;
    return false;
}

} // namespace tarn
