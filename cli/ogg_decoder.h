// The part of Ogg decoding that does not depend on the codec.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/decoder.h"
#include "cli/ogg_pages.h"

#include <cstdint>
#include <vector>

namespace tarn
{

/// Decodes an Ogg stream page by page from its first packet. Damaged and missing pages become silence, so that later
/// audio keeps its time.
class OggDecoder : public Decoder
{
public:
    std::size_t read(double* to, std::size_t frames) final;
    std::uint64_t silencedFrames() const final { return silenced; }
    std::uint64_t skippedFrames() const final { return skipped; }
    std::string error() const final;

protected:
    /// How a codec uses the granule positions of pages.
    struct Positions
    {
        std::uint64_t preSkip = 0;     ///< frames to drop at the start
        bool canBeNegative = false;    ///< the first page can begin before position 0; drop frames there
        std::int64_t maxTrim = 0;      ///< maximum frames that the last page can cut off
        std::int64_t packetFrames = 1; ///< lost packets have a multiple of this length
    };

    OggDecoder(int descriptor, ByteRange range, int serial) : stream(descriptor, range, serial) {}

    /// Decodes a packet and appends its frames, interleaved. Returns false if the packet is damaged.
    virtual bool decode(ogg_packet& packet, std::vector<float>& to) = 0;

    /// Decodes the next page of the stream. Returns whether there is one.
    bool decodePage();

    /// Decodes the unread packets that end on the current page.
    void decodePackets();

    /// The granule position of the first frame, before preSkip; 0 until a page declares a position.
    std::int64_t firstPosition() const noexcept { return origin; }

    /// Whether decoded frames are unread.
    bool hasFrames() const noexcept { return toSilence > 0 || used < samples.size(); }

    OggStream stream;
    Positions positions;

private:
    void place(std::int64_t granule, bool isLast);
    std::int64_t fillHole(std::int64_t ahead, bool isLast);
    void dropPreSkip();

    std::vector<float> samples;  ///< of the last page, interleaved
    std::size_t used = 0;        ///< samples already read
    std::uint64_t toSilence = 0; ///< frames of silence before them
    std::int64_t origin = 0;     ///< granule position of frame 0, from the last page
    bool hasOrigin = false;      ///< a page declared it
    bool hasHole = false;        ///< packets were lost since the last page with a position
    bool hasHoles = false;       ///< packets were lost
    bool hasUnfilled = false;    ///< packets were lost and did not become silence
    std::uint64_t position = 0;  ///< frames of all pages before the last
    std::uint64_t silenced = 0;  ///< frames
    std::uint64_t skipped = 0;   ///< frames
};

} // namespace tarn
