// Decodes Ogg Vorbis with libvorbis.
// SPDX-License-Identifier: MIT
#include "cli/vorbis_decoder.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace tarn
{

namespace
{

constexpr int kHeaders = 3;

/// Whether a packet begins like a header: a type, then a mark.
bool isHeader(const ogg_packet& packet)
{
    const std::string_view bytes(reinterpret_cast<const char*>(packet.packet), static_cast<std::size_t>(packet.bytes));
    return bytes.size() > 6 && bytes.substr(1, 6) == "vorbis";
}

} // namespace

VorbisDecoder::VorbisDecoder(int descriptor, ByteRange part, int serial, const SF_INFO& described)
    : OggDecoder(descriptor, part, serial)
{
    vorbis_info_init(&info);
    vorbis_comment_init(&comment);
    const bool works = readHeaders() && info.channels == described.channels && info.rate == described.samplerate &&
                       vorbis_synthesis_init(&dsp, &info) == 0;
    if (!works) {
        // The destructor does not run after a throwing constructor.
        vorbis_comment_clear(&comment);
        vorbis_info_clear(&info);
        throw std::runtime_error("its Vorbis headers are damaged");
    }
    vorbis_block_init(&dsp, &block);
    facts = described;
    positions = {.canBeNegative = true, .maxTrim = vorbis_info_blocksize(&info, 1)};
    // The page of the last header can also contain audio.
    decodePackets();
    while (!hasFrames() && decodePage()) {
    }
    // libsndfile counts frames before position 0, and knows no length if other bytes follow the last page.
    const std::int64_t begin = std::max<std::int64_t>(firstPosition(), 0);
    const OggEnd end = oggEnd(descriptor, part, serial);
    const bool isKnown = facts.frames != SF_COUNT_MAX || end.isMarked;
    if (isKnown && end.granule >= begin) facts.frames = std::min<sf_count_t>(facts.frames, end.granule - begin);
}

VorbisDecoder::~VorbisDecoder()
{
    vorbis_block_clear(&block);
    vorbis_dsp_clear(&dsp);
    vorbis_comment_clear(&comment);
    vorbis_info_clear(&info);
}

bool VorbisDecoder::readHeaders()
{
    int headers = 0;
    while (headers < kHeaders) {
        if (!stream.nextPage()) return false;
        ogg_packet packet;
        while (headers < kHeaders && stream.nextPacket(packet) == 1) {
            if (vorbis_synthesis_headerin(&info, &comment, &packet) != 0) return false;
            ++headers;
        }
    }
    return true;
}

bool VorbisDecoder::decode(ogg_packet& packet, std::vector<float>& to)
{
    const int result = vorbis_synthesis(&block, &packet);
    if (result == OV_ENOTAUDIO) return isHeader(packet) || packet.bytes == 0; // some files repeat the headers
    if (result != 0) return false;
    // Prevents libvorbis from trimming packets; OggDecoder trims the whole page.
    block.granulepos = -1;
    block.eofflag = 0;
    vorbis_synthesis_blockin(&dsp, &block);
    float** channels = nullptr;
    for (int frames = 0; (frames = vorbis_synthesis_pcmout(&dsp, &channels)) > 0;) {
        for (int i = 0; i < frames; ++i)
            for (int c = 0; c < facts.channels; ++c) to.push_back(channels[c][i]);
        vorbis_synthesis_read(&dsp, frames);
    }
    return true;
}

} // namespace tarn
