// Decoder for Ogg Vorbis.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/ogg_decoder.h"

#include <vector>

#include <vorbis/codec.h>

namespace tarn
{

/// Decodes Ogg Vorbis with libvorbis.
class VorbisDecoder final : public OggDecoder
{
public:
    /// described  format and length according to libsndfile
    VorbisDecoder(int descriptor, ByteRange part, int serial, const SF_INFO& described);
    ~VorbisDecoder() override;

    VorbisDecoder(const VorbisDecoder&) = delete;
    VorbisDecoder& operator=(const VorbisDecoder&) = delete;

private:
    bool readHeaders();
    bool decode(ogg_packet& packet, std::vector<float>& to) override;

    vorbis_info info{};
    vorbis_comment comment{};
    vorbis_dsp_state dsp{};
    vorbis_block block{};
};

} // namespace tarn
