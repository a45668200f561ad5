// Decoder for Ogg Opus.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/ogg_decoder.h"

#include <memory>
#include <vector>

#include <opus_multistream.h>

namespace tarn
{

/// Decodes mono and stereo Ogg Opus (RFC 7845) with libopus at 48 kHz, with the output gain of its header.
class OpusDecoder final : public OggDecoder
{
public:
    OpusDecoder(int descriptor, ByteRange part, int serial);

private:
    std::int64_t readHeader();
    bool decode(ogg_packet& packet, std::vector<float>& to) override;

    struct Closer
    {
        void operator()(OpusMSDecoder* opened) const noexcept { opus_multistream_decoder_destroy(opened); }
    };

    std::unique_ptr<OpusMSDecoder, Closer> decoder;
};

} // namespace tarn
