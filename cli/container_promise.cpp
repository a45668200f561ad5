#include "cli/container_promise.h"

#include "cli/file_bytes.h"

#include <algorithm>
#include <string_view>

namespace tarn
{

namespace
{

AudioBytes audioAt(const FileBytes& file, std::uint64_t position, std::uint64_t promised)
{
    const std::uint64_t left = file.size() - std::min(position, file.size());
    return {.promised = promised, .present = std::min(promised, left)};
}

/// Sizes near the top of the signed and of the unsigned range are what streaming programs write.
bool isPlaceholder(std::uint64_t size)
{
    return (size >= 0x7ffff000 && size <= 0x80000000) || (size >= 0xffffff00 && size <= 0xffffffff);
}

/// Chunks of a four-letter mark and a 32-bit size, padded to even sizes, from position 12.
///
/// audioOffset  bytes of the audio chunk before the samples
std::optional<AudioBytes> inChunks(const FileBytes& file, std::string_view audioMark, std::uint64_t audioOffset,
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

/// Chunks of a 16-byte mark that begins with four letters and a 64-bit size that counts both, padded to 8 bytes.
std::optional<AudioBytes> inW64(const FileBytes& file)
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

/// A fixed header: mark, position of the audio, its size.
std::optional<AudioBytes> inAu(const FileBytes& file, bool bigEndian)
{
    const std::uint64_t size = file.number(8, 4, bigEndian);
    if (isPlaceholder(size)) return std::nullopt;
    return audioAt(file, file.number(4, 4, bigEndian), size);
}

/// The position of the first CAF chunk with a mark, from a position of a chunk on; the end of the file if there is
/// none. A chunk is a mark, 64 bits of size, the contents.
std::uint64_t cafChunk(const FileBytes& file, std::uint64_t at, std::string_view mark)
{
    while (at < file.size() && !file.marks(at, mark)) {
        const std::uint64_t size = file.number(at + 4, 8, true);
        if (size >= file.size()) return file.size();
        at += 12 + size;
    }
    return at;
}

std::optional<AudioBytes> inCaf(const FileBytes& file)
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

/// The position behind a container as its sizes declare it; 0 if they do not.
std::uint64_t declaredEnd(const FileBytes& file, std::uint64_t begin)
{
    const auto behind = [&](std::uint64_t header, std::uint64_t size) {
        return isPlaceholder(size) || size >= file.size() ? 0 : begin + header + size;
    };
    const bool isSwappedAu = file.marks(begin, "dns.");
    if (file.marks(begin, "RF64"))
        return file.marks(begin + 12, "ds64") ? behind(8, file.number(begin + 20, 8, false)) : 0;
    if (file.marks(begin, "riff")) return behind(0, file.number(begin + 16, 8, false));
    if (file.marks(begin, "caff")) return cafChunk(file, begin + 8, "caff");
    if (isSwappedAu || file.marks(begin, ".snd"))
        return behind(file.number(begin + 4, 4, !isSwappedAu), file.number(begin + 8, 4, !isSwappedAu));
    return behind(8, file.number(begin + 4, 4, !file.marks(begin, "RIFF")));
}

} // namespace

std::optional<AudioBytes> promisedAudio(const FileBytes& file)
{
    if (file.marks(0, "RIFF") || file.marks(0, "RF64")) return inChunks(file, "data", 0, false);
    if (file.marks(0, "RIFX")) return inChunks(file, "data", 0, true);
    if (file.marks(0, "FORM")) return inChunks(file, "SSND", 8, true);
    if (file.marks(0, "riff")) return inW64(file);
    if (file.marks(0, ".snd")) return inAu(file, true);
    if (file.marks(0, "dns.")) return inAu(file, false);
    if (file.marks(0, "caff")) return inCaf(file);
    return std::nullopt;
}

std::optional<CutChunk> cutCafData(const FileBytes& file)
{
    if (!file.marks(0, "caff")) return std::nullopt;
    const std::uint64_t at = cafChunk(file, 8, "data");
    if (at + 12 > file.size() || file.number(at + 4, 8, true) <= file.size() - at - 12) return std::nullopt;
    return CutChunk{.sizeAt = at + 4, .present = file.size() - at - 12};
}

std::optional<std::uint64_t> nextContainer(const FileBytes& file, std::uint64_t begin)
{
    if (!isContainer(file, begin)) return std::nullopt;
    const std::uint64_t end = declaredEnd(file, begin);
    // Odd sizes are padded, but not by all programs.
    for (const std::uint64_t next : {end, end + end % 2})
        if (next > begin && isContainer(file, next)) return next;
    return std::nullopt;
}

bool hasMpegIndex(int descriptor, std::uint64_t position)
{
    const FileBytes file(descriptor);
    const std::uint64_t start = position + file.id3v2Size(position);

    // The mark stands behind the first frame's header, checksum and side information, which make 11 to 38 bytes.
    constexpr std::uint64_t kFarthest = 64;
    for (std::uint64_t i = 0; i < kFarthest; ++i)
        for (const std::string_view mark : {"Xing", "Info", "VBRI"})
            if (file.marks(start + i, mark)) return true;
    return false;
}

} // namespace tarn
