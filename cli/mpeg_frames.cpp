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

/// Whether the bytes between frames, or after the last one, are no damaged frames: tags and zeros.
bool isBetweenFrames(const FileBytes& file, std::uint64_t begin, std::uint64_t end)
{
    constexpr std::uint64_t kId3v1Bytes = 128;
    constexpr std::uint64_t kApeFooterBytes = 32;
    for (const std::string_view mark : {"TAG", "ID3", "APETAGEX", "LYRICSBEGIN", "RIFF", "LIST", "id3 "})
        if (file.marks(begin, mark)) return true;
    // An APE tag of version 1 has no mark at its start.
    for (const std::uint64_t footer : {kApeFooterBytes, kApeFooterBytes + kId3v1Bytes})
        if (end >= begin + footer && file.marks(end - footer, "APETAGEX")) return true;
    return file.skipZeros(begin, end) == end;
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

std::optional<std::uint64_t> indexedFrames(const FileBytes& file, std::uint64_t position, const MpegFrame& frame)
{
    constexpr std::uint64_t kVbri = 36;
    const std::uint64_t index = position + frame.sideInformation;
    if (file.marks(index, "Xing") || file.marks(index, "Info")) {
        const bool hasFrames = (file.number(index + 4, 4, true) & 1) != 0;
        return hasFrames ? file.number(index + 8, 4, true) : 0;
    }
    if (file.marks(position + kVbri, "VBRI")) return file.number(position + kVbri + 14, 4, true);
    return std::nullopt;
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

MpegDamage findMpegDamage(int descriptor, ByteRange part)
{
    const FileBytes file(descriptor, part);
    MpegDamage damage;
    std::uint64_t position = nextMpegFrame(file, file.id3v2Size(0), file.size());
    std::optional<MpegFrame> last;
    std::uint64_t frames = 0;
    while (position < file.size()) {
        const auto frame = mpegFrameAt(file, position);
        if (frame && (!last || frame->kind == last->kind)) {
            damage.endsInsideFrame = position + frame->bytes > file.size();
            damage.end = std::min(position + frame->bytes, file.size());
            damage.frameSamples = frame->samples;
            last = frame;
            position += frame->bytes;
            ++frames;
            continue;
        }
        if (!last) break;
        const std::uint64_t next = nextMpegFrame(file, position + 1, file.size());
        if (!isBetweenFrames(file, position, next)) {
            if (damage.lostFrames == 0) damage.firstLost = frames;
            damage.lostFrames += std::max<std::uint64_t>((next - position + last->bytes / 2) / last->bytes, 1);
        }
        position = next;
    }
    damage.end += part.begin;
    return damage;
}

} // namespace tarn
