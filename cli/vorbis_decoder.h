#pragma once

#include "cli/decoder.h"
#include "cli/file_window.h"

#include <cstdint>
#include <vector>

#include <ogg/ogg.h>
#include <vorbis/codec.h>

namespace tarn
{

/// Ogg Vorbis by libogg and libvorbis, page by page and from the first packet on. It goes on behind pages that are
/// damaged or missing, which become silence, so that what follows keeps its place.
class VorbisDecoder final : public Decoder
{
public:
    /// described  what libsndfile found in the part
    VorbisDecoder(int descriptor, ByteRange part, const SF_INFO& described);
    ~VorbisDecoder() override;

    VorbisDecoder(const VorbisDecoder&) = delete;
    VorbisDecoder& operator=(const VorbisDecoder&) = delete;

    std::size_t read(double* samples, std::size_t frames) override;
    std::uint64_t silencedFrames() const override { return silenced; }
    std::string error() const override;

private:
    bool nextPage(ogg_page& page);
    bool readHeaders();
    bool takeHeader(ogg_packet& packet);
    bool decodePage();
    void decodePackets();
    void decode(ogg_packet& packet);
    void place(std::int64_t granule, bool isLast);

    FileWindow window;
    ogg_sync_state sync{};
    ogg_stream_state stream{};
    vorbis_info info{};
    vorbis_comment comment{};
    vorbis_dsp_state dsp{};
    vorbis_block block{};
    int headers = 0;        ///< of three that were read
    bool isOpen = false;    ///< dsp and block are in use
    bool hasStream = false; ///< stream is in use

    std::vector<float> samples;  ///< interleaved, of the last page
    std::size_t used = 0;        ///< of these
    std::uint64_t toSilence = 0; ///< frames of silence due before them
    std::int64_t origin = 0;     ///< the granule position of frame 0
    bool hasOrigin = false;      ///< a page has told it
    bool hasHole = false;        ///< packets were lost since the last page that told its position
    bool hasHoles = false;       ///< packets were lost at all
    std::uint64_t position = 0;  ///< frames of all pages before the last one
    std::uint64_t silenced = 0;  ///< frames
};

} // namespace tarn
