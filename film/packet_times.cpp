// Repairs time stamps of a copied track.
// SPDX-License-Identifier: MIT
#include "film/packet_times.h"

#include <algorithm>
#include <utility>

extern "C" {
#include <libavutil/common.h>
}

namespace tarn
{

bool PacketTimes::exchange(AVPacket& packet)
{
    const bool isReady = std::exchange(isHolding, true);
    if (isReady) repair(packet.dts);
    const Packet newest = newPacket();
    av_packet_move_ref(newest.get(), &packet);
    if (isReady) av_packet_move_ref(&packet, held.get());
    av_packet_move_ref(held.get(), newest.get());
    return isReady;
}

bool PacketTimes::drain(AVPacket& packet)
{
    if (!std::exchange(isHolding, false)) return false;
    repair(AV_NOPTS_VALUE);
    av_packet_move_ref(&packet, held.get());
    return true;
}

/// Moves the held packet between its neighbours if it is not there.
void PacketTimes::repair(std::int64_t next)
{
    if (held->dts == AV_NOPTS_VALUE) return;
    const bool isTooLate = next != AV_NOPTS_VALUE && held->dts > next && (!last || next > *last);
    const bool isTooEarly = last && held->dts < *last;
    if (isTooLate || isTooEarly) {
        const std::int64_t duration = std::max<std::int64_t>(held->duration, 1);
        std::int64_t time = last ? av_sat_add64(*last, duration) : av_sat_sub64(next, duration);
        if (isTooLate) time = std::min(time, next);
        if (held->pts != AV_NOPTS_VALUE) held->pts = av_sat_add64(time, av_sat_sub64(held->pts, held->dts));
        held->dts = time;
    }
    last = held->dts;
}

} // namespace tarn
