#include "cli/vorbis_decoder.h"

#include "cli/text.h"

#include <algorithm>
#include <stdexcept>

namespace tarn
{

namespace
{

constexpr int kHeaders = 3;
constexpr long kReadBytes = 65536;

/// The longest gap that is filled: a damaged position could declare any.
constexpr std::int64_t kMaxGapFrames = std::int64_t{1} << 22;

} // namespace

VorbisDecoder::VorbisDecoder(int descriptor, ByteRange part, const SF_INFO& described) : window(descriptor, part)
{
    ogg_sync_init(&sync);
    vorbis_info_init(&info);
    vorbis_comment_init(&comment);
    const bool works = readHeaders() && info.channels == described.channels && info.rate == described.samplerate &&
                       vorbis_synthesis_init(&dsp, &info) == 0;
    if (works) {
        vorbis_block_init(&dsp, &block);
        isOpen = true;
        facts = described;
        // The page of the last header can hold audio as well.
        decodePackets();
        return;
    }
    // A constructor that throws has no destructor.
    if (hasStream) ogg_stream_clear(&stream);
    vorbis_comment_clear(&comment);
    vorbis_info_clear(&info);
    ogg_sync_clear(&sync);
    throw std::runtime_error("its Vorbis headers are damaged");
}

VorbisDecoder::~VorbisDecoder()
{
    if (isOpen) {
        vorbis_block_clear(&block);
        vorbis_dsp_clear(&dsp);
    }
    if (hasStream) ogg_stream_clear(&stream);
    vorbis_comment_clear(&comment);
    vorbis_info_clear(&info);
    ogg_sync_clear(&sync);
}

/// Reads the next good page. Returns whether there was one.
bool VorbisDecoder::nextPage(ogg_page& page)
{
    while (true) {
        const int found = ogg_sync_pageout(&sync, &page);
        if (found > 0) return true;
        if (found < 0) continue; // bytes were skipped; there may be more pages behind them
        char* const buffer = ogg_sync_buffer(&sync, kReadBytes);
        if (buffer == nullptr) return false;
        const std::size_t got = window.read(buffer, kReadBytes);
        if (got == 0) return false;
        ogg_sync_wrote(&sync, static_cast<long>(got));
    }
}

/// Finds the first Vorbis stream and reads its three headers.
bool VorbisDecoder::readHeaders()
{
    ogg_page page;
    while (headers < kHeaders) {
        if (!nextPage(page)) return false;
        if (!hasStream) {
            if (ogg_page_bos(&page) == 0) continue;
            ogg_stream_init(&stream, ogg_page_serialno(&page));
            hasStream = true;
            ogg_packet first;
            ogg_stream_pagein(&stream, &page);
            if (ogg_stream_packetout(&stream, &first) != 1 || vorbis_synthesis_idheader(&first) == 0) {
                ogg_stream_clear(&stream);
                hasStream = false;
            } else if (!takeHeader(first)) {
                return false;
            }
            continue;
        }
        if (ogg_stream_pagein(&stream, &page) != 0) continue;
        ogg_packet packet;
        while (headers < kHeaders && ogg_stream_packetout(&stream, &packet) == 1)
            if (!takeHeader(packet)) return false;
    }
    return true;
}

bool VorbisDecoder::takeHeader(ogg_packet& packet)
{
    ++headers;
    return vorbis_synthesis_headerin(&info, &comment, &packet) == 0;
}

std::size_t VorbisDecoder::read(double* to, std::size_t frames)
{
    const auto channels = static_cast<std::size_t>(facts.channels);
    while (toSilence == 0 && used == samples.size())
        if (!decodePage()) return 0;
    if (toSilence > 0) {
        const auto some = static_cast<std::size_t>(std::min<std::uint64_t>(toSilence, frames));
        std::fill_n(to, some * channels, 0.0);
        toSilence -= some;
        return some;
    }
    const std::size_t some = std::min(frames, (samples.size() - used) / channels);
    std::copy_n(samples.begin() + static_cast<std::ptrdiff_t>(used), some * channels, to);
    used += some * channels;
    return some;
}

/// Decodes the next page of the stream. Returns whether there was one.
bool VorbisDecoder::decodePage()
{
    ogg_page page;
    while (nextPage(page)) {
        if (ogg_stream_pagein(&stream, &page) != 0) continue; // of another stream
        decodePackets();
        return true;
    }
    return false;
}

/// Decodes the packets that the page ends, and finds their place by the position that it gives to the last of them.
void VorbisDecoder::decodePackets()
{
    samples.clear();
    used = 0;
    std::int64_t granule = -1;
    bool isLast = false;
    ogg_packet packet;
    for (int found = 0; (found = ogg_stream_packetout(&stream, &packet)) != 0;) {
        if (found < 0) {
            hasHole = hasHoles = true;
            continue;
        }
        decode(packet);
        if (packet.granulepos != -1) granule = packet.granulepos;
        isLast = isLast || packet.e_o_s != 0;
    }
    place(granule, isLast);
    position += toSilence + samples.size() / static_cast<std::size_t>(facts.channels);
}

void VorbisDecoder::decode(ogg_packet& packet)
{
    if (vorbis_synthesis(&block, &packet) != 0) {
        hasHole = hasHoles = true;
        return;
    }
    // libvorbis would cut frames off packet by packet; place does so for the whole page.
    block.granulepos = -1;
    block.eofflag = 0;
    vorbis_synthesis_blockin(&dsp, &block);
    float** channels = nullptr;
    for (int frames = 0; (frames = vorbis_synthesis_pcmout(&dsp, &channels)) > 0;) {
        for (int i = 0; i < frames; ++i)
            for (int c = 0; c < facts.channels; ++c) samples.push_back(channels[c][i]);
        vorbis_synthesis_read(&dsp, frames);
    }
}

/// Cuts off what is before frame 0 or behind the last frame, and fills what was lost.
void VorbisDecoder::place(std::int64_t granule, bool isLast)
{
    // Frames at negative positions are not to be heard.
    if (granule < -1 && !hasOrigin) samples.clear();
    if (granule < 0 || samples.empty()) return;
    const auto channels = static_cast<std::ptrdiff_t>(facts.channels);
    const auto frames = static_cast<std::int64_t>(samples.size()) / channels;
    if (!hasOrigin) {
        hasOrigin = true;
        hasHole = false;
        // A recording can begin anywhere.
        origin = std::max<std::int64_t>(granule - static_cast<std::int64_t>(position) - frames, 0);
        if (granule < frames && !isLast)
            samples.erase(samples.begin(), samples.begin() + (frames - granule) * channels);
        if (!isLast) return;
    }
    const std::int64_t ahead = granule - origin - static_cast<std::int64_t>(position) - frames;
    if (hasHole && ahead > 0 && ahead <= kMaxGapFrames) {
        toSilence = static_cast<std::uint64_t>(ahead);
        silenced += toSilence;
    }
    hasHole = false;
    // The last packet may be longer than its audio.
    if (isLast && ahead < 0 && -ahead <= std::min<std::int64_t>(vorbis_info_blocksize(&info, 1), frames))
        samples.resize(samples.size() - static_cast<std::size_t>(-ahead * channels));
}

std::string VorbisDecoder::error() const
{
    if (window.error() != 0) return systemError(window.error());
    return hasHoles && silenced == 0 ? "some of its packets are damaged" : std::string();
}

} // namespace tarn
