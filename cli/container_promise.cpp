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

} // namespace

std::optional<AudioBytes> promisedAudio(int descriptor)
{
    const FileBytes file(descriptor);
    if (file.marks(0, "RIFF") || file.marks(0, "RF64")) return inChunks(file, "data", 0, false);
    if (file.marks(0, "RIFX")) return inChunks(file, "data", 0, true);
    if (file.marks(0, "FORM")) return inChunks(file, "SSND", 8, true);
    if (file.marks(0, "riff")) return inW64(file);
    if (file.marks(0, ".snd")) return inAu(file, true);
    if (file.marks(0, "dns.")) return inAu(file, false);
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
