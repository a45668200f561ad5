// Parses index frames of MPEG audio and compares them with their checksum and with the frames of the file.
// SPDX-License-Identifier: MIT
#include "cli/mpeg_index.h"

#include <algorithm>
#include <array>

namespace tarn
{

namespace
{

// Offsets in an index, from its mark.
constexpr std::uint64_t kFlags = 4;
constexpr std::uint64_t kFrames = 8;
constexpr std::uint64_t kBytes = 12;
constexpr std::uint64_t kEncoder = 120;
constexpr std::uint64_t kDelay = 141;
constexpr std::uint64_t kChecksum = 154;

/// Flags of all fields before the encoder.
constexpr std::uint64_t kAllFields = 15;

/// The number of frames that replaces the declared one.
struct Replaced
{
    std::uint64_t at = 0; ///< position
    std::string bytes;
};

/// The checksum of bytes from a position on: CRC-16 with the reflected polynomial 0xa001.
///
/// frameEnd  from here on, bytes count as zero
/// zeroAt    position of two bytes that count as zero
/// replaced  bytes that count instead of those of the file
std::uint16_t checksumOf(const FileBytes& file, ByteRange bytes, std::uint64_t frameEnd, std::uint64_t zeroAt,
                         const Replaced& replaced)
{
    std::uint32_t checksum = 0;
    for (std::uint64_t at = bytes.begin; at < bytes.end; ++at) {
        auto byte = static_cast<std::uint32_t>(file.number(at, 1, true));
        if (at >= frameEnd || (at >= zeroAt && at < zeroAt + 2)) byte = 0;
        if (at >= replaced.at && at < replaced.at + replaced.bytes.size())
            byte = static_cast<unsigned char>(replaced.bytes[at - replaced.at]);
        checksum ^= byte;
        for (int bit = 0; bit < 8; ++bit) checksum = checksum >> 1 ^ ((checksum & 1) != 0 ? 0xa001u : 0u);
    }
    return static_cast<std::uint16_t>(checksum);
}

/// Whether the checksum of an index is right. LAME includes all bytes before it; Lavc always includes 190 bytes, with
/// zeros behind a shorter frame.
///
/// index  position of its mark
bool isChecksumRight(const FileBytes& file, ByteRange frame, std::uint64_t index, const Replaced& replaced)
{
    constexpr std::uint64_t kLavcBytes = 190;
    const std::uint64_t field = index + kChecksum;
    const auto declared = static_cast<std::uint16_t>(file.number(field, 2, true));
    return std::ranges::any_of(std::array{field, frame.begin + kLavcBytes}, [&](std::uint64_t end) {
        return checksumOf(file, {.begin = frame.begin, .end = end}, frame.end, field, replaced) == declared;
    });
}

/// Finds the mark of a Xing or Info index; 0 if there is none. It follows the side information, for some encoders after
/// a checksum.
std::uint64_t findMark(const FileBytes& file, std::uint64_t position, const MpegFrame& frame)
{
    constexpr std::uint64_t kFrameChecksum = 2;
    for (const std::uint64_t at : {position + frame.sideInformation, position + frame.sideInformation + kFrameChecksum})
        if (file.marks(at, "Xing") || file.marks(at, "Info")) return at;
    return 0;
}

MpegIndex readIndex(const FileBytes& file, ByteRange frame, std::uint64_t mark)
{
    constexpr std::uint64_t kDecoderDelay = 529;
    const std::uint64_t flags = file.number(mark + kFlags, 4, true);
    MpegIndex index;
    if ((flags & 1) != 0) index.framesAt = mark + kFrames;
    if ((flags & 3) == 3) index.declaredBytes = file.number(mark + kBytes, 4, true);
    const bool isKnownEncoder = file.marks(mark + kEncoder, "LAME") || file.marks(mark + kEncoder, "Lavc") ||
                                file.marks(mark + kEncoder, "Lavf");
    // A damaged flag moves no field of these encoders, which write all of them.
    index.hasChecksum = isKnownEncoder && file.number(mark + kChecksum, 2, true) != 0;
    index.isDamaged = index.hasChecksum && !isChecksumRight(file, frame, mark, {});
    if (isKnownEncoder && (flags & kAllFields) == kAllFields)
        index.delaySamples = (file.number(mark + kDelay, 3, true) >> 12) + kDecoderDelay;
    if (index.framesAt != 0 && !index.isDamaged) index.frames = file.number(index.framesAt, 4, true);
    return index;
}

std::string bigEndian(std::uint64_t number)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 0xff);
    return bytes;
}

} // namespace

std::optional<MpegIndex> mpegIndexAt(const FileBytes& file, std::uint64_t position, const MpegFrame& frame)
{
    constexpr std::uint64_t kVbri = 36;
    constexpr std::uint64_t kVbriFrames = 14;
    if (const std::uint64_t mark = findMark(file, position, frame); mark != 0)
        return readIndex(file, {.begin = position, .end = position + frame.bytes}, mark);
    if (!file.marks(position + kVbri, "VBRI")) return std::nullopt;
    const std::uint64_t framesAt = position + kVbri + kVbriFrames;
    return MpegIndex{.frames = file.number(framesAt, 4, true), .framesAt = framesAt};
}

std::optional<MpegIndex> firstMpegIndex(const FileBytes& file)
{
    const std::uint64_t begin = file.id3v2Size(0);
    const auto frame = mpegFrameAt(file, begin);
    return frame ? mpegIndexAt(file, begin, *frame) : std::nullopt;
}

std::optional<MpegIndexRepair> repairMpegIndex(int descriptor, ByteRange part)
{
    const FileBytes file(descriptor, part);
    const auto index = firstMpegIndex(file);
    const bool isCountOfBytes = index && !index->hasChecksum && index->declaredBytes != 0;
    if (!index || (!index->isDamaged && !isCountOfBytes)) return std::nullopt;
    constexpr const char* kInexact = "up to 0.1 seconds at its start and end can be missing or added";
    MpegIndexRepair repair{.position = index->framesAt,
                           .bytes = {},
                           .note =
                               std::string("its index is damaged, so its length cannot be checked, and ") + kInexact};
    if (index->framesAt == 0) return repair;

    const std::uint64_t begin = file.id3v2Size(0);
    const MpegFrame frame = *mpegFrameAt(file, begin);
    const MpegDamage damage = findMpegDamage(descriptor, part);
    const std::uint64_t frames = damage.frames - std::min<std::uint64_t>(damage.frames, 1);
    const std::uint64_t declared = file.number(index->framesAt, 4, true);
    const std::string corrected = bigEndian(frames);
    const bool isWhole = damage.lostFrames == 0 && !damage.endsInsideFrame;
    const bool isRight =
        index->isDamaged ? isChecksumRight(file, {.begin = begin, .end = begin + frame.bytes},
                                           findMark(file, begin, frame), {.at = repair.position, .bytes = corrected})
                         : isWhole && declared != frames && damage.end == part.begin + begin + index->declaredBytes;
    if (isRight) {
        // Some encoders count the index too, which is no damage.
        const bool isUsual = !index->isDamaged && declared == frames + 1;
        repair.bytes = corrected;
        repair.note = isUsual ? ""
                              : "its index declares " + std::to_string(declared) + " frames of MPEG audio instead of " +
                                    std::to_string(frames) + " and is corrected";
        return repair;
    }
    if (!index->isDamaged) return std::nullopt;
    if (isWhole && declared == frames) {
        repair.bytes = corrected; // the number was right
        repair.note = std::string("the checksum of its index is wrong, so ") + kInexact;
    }
    return repair;
}

} // namespace tarn
