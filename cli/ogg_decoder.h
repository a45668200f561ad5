#pragma once

#include "cli/decoder.h"
#include "cli/ogg_pages.h"

#include <cstdint>
#include <vector>

namespace tarn
{

/// An Ogg stream, page by page and from the first packet on. It goes on behind pages that are damaged or missing, which
/// become silence, so that what follows keeps its place.
class OggDecoder : public Decoder
{
public:
    std::size_t read(double* to, std::size_t frames) final;
    std::uint64_t silencedFrames() const final { return silenced; }
    std::string error() const final;

protected:
    /// How a codec uses the positions of pages.
    struct Positions
    {
        std::uint64_t preSkip = 0;     ///< frames at the start that are decoded and dropped
        bool canBeNegative = false;    ///< the first page can begin before position 0; frames there are dropped
        std::int64_t maxTrim = 0;      ///< frames that the position of the last page can cut off
        std::int64_t packetFrames = 1; ///< packets that were lost have a multiple of this
    };

    OggDecoder(int descriptor, ByteRange range, int serial) : stream(descriptor, range, serial) {}

    /// Decodes a packet and appends its frames, interleaved. Returns false if the packet is damaged.
    virtual bool decode(ogg_packet& packet, std::vector<float>& to) = 0;

    /// Decodes the next page of the stream. Returns whether there was one.
    bool decodePage();

    /// Decodes the packets that the present page ends and that are not read yet.
    void decodePackets();

    /// The position of the first frame, before preSkip; 0 as long as no page has told it.
    std::int64_t firstPosition() const noexcept { return origin; }

    /// Whether frames are decoded and not read yet.
    bool hasFrames() const noexcept { return toSilence > 0 || used < samples.size(); }

    OggStream stream;
    Positions positions;

private:
    void place(std::int64_t granule, bool isLast);
    void dropPreSkip();

    std::vector<float> samples;  ///< interleaved, of the last page
    std::size_t used = 0;        ///< of these
    std::uint64_t toSilence = 0; ///< frames of silence due before them
    std::int64_t origin = 0;     ///< the granule position of frame 0, by the last page
    bool hasOrigin = false;      ///< a page has told it
    bool hasHole = false;        ///< packets were lost since the last page that told its position
    bool hasHoles = false;       ///< packets were lost at all
    std::uint64_t position = 0;  ///< frames of all pages before the last one
    std::uint64_t silenced = 0;  ///< frames
};

} // namespace tarn
