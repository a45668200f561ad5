// Places decoded Ogg pages on the time line and fills gaps with silence.
// SPDX-License-Identifier: MIT
#include "cli/ogg_decoder.h"

#include "cli/text.h"

#include <algorithm>

namespace tarn
{

namespace
{

/// Maximum gap to fill; a damaged position could declare any length.
constexpr std::int64_t kMaxGapFrames = std::int64_t{1} << 22;

} // namespace

std::size_t OggDecoder::read(double* to, std::size_t frames)
{
    const auto channels = static_cast<std::size_t>(facts.channels);
    while (!hasFrames())
        if (!decodePage()) return 0;
    if (toSilence > 0) {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(toSilence, frames));
        std::fill_n(to, count * channels, 0.0);
        toSilence -= count;
        return count;
    }
    const std::size_t count = std::min(frames, (samples.size() - used) / channels);
    std::copy_n(samples.begin() + static_cast<std::ptrdiff_t>(used), count * channels, to);
    used += count * channels;
    return count;
}

bool OggDecoder::decodePage()
{
    if (!stream.nextPage()) return false;
    decodePackets();
    return true;
}

/// Decodes the packets of a page and places them by the position of the page.
void OggDecoder::decodePackets()
{
    samples.clear();
    used = 0;
    std::int64_t granule = -1;
    bool isLast = false;
    ogg_packet packet;
    for (int found = 0; (found = stream.nextPacket(packet)) != 0;) {
        if (found < 0 || !decode(packet, samples)) {
            hasHole = hasHoles = true;
            continue;
        }
        if (packet.granulepos != -1) granule = packet.granulepos;
        isLast = isLast || packet.e_o_s != 0;
    }
    place(granule, isLast);
    position += toSilence + samples.size() / static_cast<std::size_t>(facts.channels);
    dropPreSkip();
}

/// Removes samples before frame 0 and after the last frame, and fills gaps.
void OggDecoder::place(std::int64_t granule, bool isLast)
{
    // Drops a first page that ends before position 0 and keeps all frames after it, like libvorbis.
    if (granule < -1 && !hasOrigin && isPosition(-(granule + 1))) {
        samples.clear();
        hasOrigin = true;
        hasHole = false;
        origin = granule - static_cast<std::int64_t>(position);
    }
    if (!isPosition(granule) || samples.empty()) return;
    const auto channels = static_cast<std::ptrdiff_t>(facts.channels);
    auto frames = static_cast<std::int64_t>(samples.size()) / channels;
    if (!hasOrigin) {
        hasOrigin = true;
        // A recording can begin anywhere, but most begin at 0: then the gap is the start.
        origin = std::max<std::int64_t>(granule - static_cast<std::int64_t>(position) - frames, 0);
        if (hasHole && origin <= kMaxGapFrames) origin = 0;
        if (positions.canBeNegative && !hasHole && granule < frames && !isLast) {
            samples.erase(samples.begin(), samples.begin() + (frames - granule) * channels);
            frames = granule;
        }
    }
    std::int64_t ahead = granule - origin - static_cast<std::int64_t>(position) - frames;
    if (hasHole) ahead -= fillHole(ahead, isLast);
    hasHole = false;
    // The last packet can be longer than its audio.
    if (isLast && ahead < 0 && -ahead <= std::min(positions.maxTrim, frames))
        samples.resize(samples.size() - static_cast<std::size_t>(-ahead * channels));
    // An edited stream can continue from another position.
    if (!isLast) origin += ahead;
}

/// Replaces lost packets by silence, or counts their frames if they are too many.
///
/// ahead  frames from the end of the decoded audio to the position of the page
/// Returns the frames of silence.
std::int64_t OggDecoder::fillHole(std::int64_t ahead, bool isLast)
{
    if (ahead <= 0 || ahead > kMaxGapFrames) {
        hasUnfilled = true;
        skipped += static_cast<std::uint64_t>(std::max<std::int64_t>(ahead, 0));
        return 0;
    }
    // The position of the last page is the end of the audio in its last packet.
    const std::int64_t unit = isLast ? positions.packetFrames : 1;
    const std::int64_t gap = (ahead + unit - 1) / unit * unit;
    toSilence = static_cast<std::uint64_t>(gap);
    silenced += toSilence;
    return gap;
}

/// Drops the remaining frames of preSkip.
void OggDecoder::dropPreSkip()
{
    const std::uint64_t silence = std::min(positions.preSkip, toSilence);
    toSilence -= silence;
    silenced -= silence;
    positions.preSkip -= silence;
    const auto channels = static_cast<std::uint64_t>(facts.channels);
    const std::uint64_t decoded = std::min(positions.preSkip, samples.size() / channels);
    used = static_cast<std::size_t>(decoded * channels);
    positions.preSkip -= decoded;
}

std::string OggDecoder::error() const
{
    if (stream.error() != 0) return systemError(stream.error());
    const bool isUnfilled = hasHole || hasUnfilled || (hasHoles && silenced == 0);
    return isUnfilled ? "some of its packets are damaged" : std::string();
}

} // namespace tarn
