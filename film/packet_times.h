// Time stamps of a copied track.
// SPDX-License-Identifier: MIT
#pragma once

#include "film/av.h"

#include <cstdint>
#include <optional>

namespace tarn
{

/// Repairs damaged time stamps, which the muxer would refuse: a decoding time after that of the next packet, or before
/// that of the packet before. Packets come out one later.
class PacketTimes
{
public:
    /// Exchanges a packet for the one before. Returns false for the first one; then the packet is empty.
    bool exchange(AVPacket& packet);

    /// Moves the last packet out. Returns false if there is none.
    bool drain(AVPacket& packet);

private:
    void repair(std::int64_t next);

    Packet held = newPacket();
    bool isHolding = false;
    std::optional<std::int64_t> last; ///< decoding time
};

} // namespace tarn
