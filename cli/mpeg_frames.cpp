// Parses MPEG frame headers and index frames.
// SPDX-License-Identifier: MIT
#include "cli/mpeg_frames.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tarn
{

namespace
{

constexpr std::uint64_t kId3v1Bytes = 128;
constexpr std::uint64_t kApeFooterBytes = 32;

/// The position after the ID3 tags that begin at a position.
std::uint64_t afterId3Tags(const FileBytes& file, std::uint64_t position)
{
    constexpr std::uint64_t kEnhancedId3v1Bytes = 227;
    while (true) {
        std::uint64_t size = file.id3v2Size(position);
        if (file.marks(position, "TAG")) size = file.marks(position, "TAG+") ? kEnhancedId3v1Bytes : kId3v1Bytes;
        if (size == 0) return position;
        position += size;
    }
}

/// Whether the bytes between frames, or after the last one, are no damaged frames: other tags than ID3 and zeros.
bool isBetweenFrames(const FileBytes& file, std::uint64_t begin, std::uint64_t end)
{
    for (const std::string_view mark : {"APETAGEX", "LYRICSBEGIN", "RIFF", "LIST", "id3 "})
        if (file.marks(begin, mark)) return true;
    // An APE tag of version 1 has no mark at its start.
    for (const std::uint64_t footer : {kApeFooterBytes, kApeFooterBytes + kId3v1Bytes})
        if (end >= begin + footer && file.marks(end - footer, "APETAGEX")) return true;
    return file.skipZeros(begin, end) == end;
}

/// The size of the tag that ends at a position: ID3v1, APE, Lyrics3 or appended ID3v2; 0 if there is none.
std::uint64_t tagSizeBefore(const FileBytes& file, std::uint64_t end)
{
    constexpr std::uint64_t kId3v2FooterBytes = 10;
    constexpr std::uint64_t kLyricsFooterBytes = 15; ///< six digits and the mark
    std::uint64_t size = 0;
    if (end >= kId3v1Bytes && file.marks(end - kId3v1Bytes, "TAG")) return kId3v1Bytes;
    if (end >= kApeFooterBytes && file.marks(end - kApeFooterBytes, "APETAGEX")) {
        const bool hasHeader = (file.number(end - 12, 4, false) >> 31) != 0;
        size = file.number(end - 20, 4, false) + (hasHeader ? kApeFooterBytes : 0);
    } else if (end >= kId3v2FooterBytes && file.marks(end - kId3v2FooterBytes, "3DI")) {
        for (std::uint64_t i = 4; i > 0; --i) size = size << 7 | (file.number(end - i, 1, true) & 0x7f);
        size += 2 * kId3v2FooterBytes;
    } else if (end >= kLyricsFooterBytes && file.marks(end - 9, "LYRICS200")) {
        for (std::uint64_t i = 15; i > 9; --i) size = size * 10 + (file.number(end - i, 1, true) & 0xf);
        size += kLyricsFooterBytes;
    }
    return size <= end ? size : 0;
}

constexpr std::uint64_t kMaxPadding = 4; ///< by which frames of one bit rate differ, bytes

/// The number of frames that a frame hides because its header declares too many bytes: its end is that of the last
/// frame that begins inside it.
std::uint64_t hiddenFrames(const FileBytes& file, std::uint64_t position, const MpegFrame& outer)
{
    const std::uint64_t end = position + outer.bytes;
    std::uint64_t inner = nextMpegFrame(file, position + 1, end);
    std::uint64_t frames = 0;
    while (inner < end) {
        const auto frame = mpegFrameAt(file, inner);
        if (!frame || frame->kind != outer.kind) return 0;
        inner += frame->bytes;
        ++frames;
    }
    return inner == end ? frames : 0;
}

} // namespace

std::optional<MpegFrame> mpegFrameAt(const FileBytes& file, std::uint64_t position)
{
    constexpr std::array<std::array<std::uint16_t, 15>, 5> kKilobits{{
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448}, // version 1, layer I
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},    // version 1, layer II
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},     // version 1, layer III
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},    // version 2, layer I
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},         // version 2, layers II and III
    }};
    constexpr std::array<std::uint32_t, 3> kRates{44100, 48000, 32000};

    const auto header = static_cast<std::uint32_t>(file.number(position, 4, true));
    const std::uint32_t version = header >> 19 & 3; // 3: 1, 2: 2, 0: 2.5
    const std::uint32_t layer = 4 - (header >> 17 & 3);
    const std::uint32_t rateIndex = header >> 10 & 3;
    const std::uint32_t bitrateIndex = header >> 12 & 15;
    if (header >> 21 != 0x7ff || version == 1 || layer == 4 || rateIndex == 3 || bitrateIndex == 0 ||
        bitrateIndex == 15)
        return std::nullopt;

    const bool isFirstVersion = version == 3;
    const std::uint32_t rate = kRates[rateIndex] >> (isFirstVersion ? 0 : version == 2 ? 1 : 2);
    const std::uint32_t bits = 1000u * kKilobits[isFirstVersion ? layer - 1 : layer == 1 ? 3 : 4][bitrateIndex];
    const std::uint32_t padding = header >> 9 & 1;
    const std::uint64_t bytes = layer == 1 ? (12 * bits / rate + padding) * 4
                                           : (layer == 3 && !isFirstVersion ? 72 : 144) * bits / rate + padding;
    const bool isMono = (header >> 6 & 3) == 3;
    const std::uint64_t side = isFirstVersion ? (isMono ? 17 : 32) : (isMono ? 9 : 17);
    const std::uint64_t samples = layer == 1 ? 384 : layer == 3 && !isFirstVersion ? 576 : 1152;
    return MpegFrame{.kind = header & 0xfffe0c00u, .bytes = bytes, .samples = samples, .sideInformation = 4 + side};
}

std::uint64_t nextMpegFrame(const FileBytes& file, std::uint64_t position, std::uint64_t limit)
{
    for (; position < limit; ++position) {
        position = file.find('\xff', position, limit);
        const auto frame = mpegFrameAt(file, position);
        if (!frame || position == limit) continue;
        const auto next = mpegFrameAt(file, position + frame->bytes);
        if (next && next->kind == frame->kind) return position;
    }
    return limit;
}

std::uint64_t mpegAudioEnd(const FileBytes& file)
{
    constexpr int kMaxTags = 8;
    std::uint64_t end = file.size();
    for (int i = 0; i < kMaxTags; ++i) end -= tagSizeBefore(file, end);
    return end;
}

MpegDamage findMpegDamage(int descriptor, ByteRange part)
{
    const FileBytes file(descriptor, part);
    const std::uint64_t limit = mpegAudioEnd(file);
    MpegDamage damage;
    const auto lose = [&damage](std::uint64_t frames) {
        if (damage.lostFrames == 0) damage.firstLost = damage.frames; // again as long as nothing is lost
        damage.lostFrames += frames;
    };
    std::uint64_t position = nextMpegFrame(file, file.id3v2Size(0), limit);
    std::optional<MpegFrame> last;
    while (position < limit) {
        const auto frame = mpegFrameAt(file, position);
        if (frame && (!last || frame->kind == last->kind)) {
            if (last && frame->bytes > last->bytes + kMaxPadding) lose(hiddenFrames(file, position, *frame));
            damage.endsInsideFrame = position + frame->bytes > limit;
            damage.end = std::min(position + frame->bytes, limit);
            damage.frameSamples = frame->samples;
            last = frame;
            position += frame->bytes;
            damage.frames += damage.endsInsideFrame ? 0 : 1;
            continue;
        }
        if (!last) break;
        const std::uint64_t next = nextMpegFrame(file, position + 1, limit);
        const std::uint64_t begin = std::min(afterId3Tags(file, position), next);
        if (!isBetweenFrames(file, begin, next))
            lose(std::max<std::uint64_t>((next - begin + last->bytes / 2) / last->bytes, 1));
        position = next;
    }
    damage.end += part.begin;
    return damage;
}

} // namespace tarn
