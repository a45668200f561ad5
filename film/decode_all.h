// Decodes a track of a film.
// SPDX-License-Identifier: MIT
#pragma once

#include "film/input_film.h"
#include "film/track_decoder.h"

namespace tarn
{

/// Decodes a whole track. Calls pass(packet) for every packet of the film, which can take it.
template <typename Pass>
void decodeAll(InputFilm& input, unsigned track, TrackDecoder& decoder, Pass pass)
{
    const Packet packet = newPacket();
    while (input.read(*packet)) {
        if (packet->stream_index == static_cast<int>(track)) decoder.decode(packet.get());
        pass(*packet);
        av_packet_unref(packet.get());
    }
    decoder.decode(nullptr);
}

} // namespace tarn
