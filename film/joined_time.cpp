// Time stamps of joined recordings.
// SPDX-License-Identifier: MIT
#include "film/joined_time.h"

#include <algorithm>

namespace tarn
{

namespace
{

/// A step back by more is a clock that starts again; less is a damaged time stamp.
constexpr std::int64_t kRestart = AV_TIME_BASE;

void move(std::int64_t& time, std::int64_t ticks)
{
    if (time != AV_NOPTS_VALUE) time += ticks;
}

} // namespace

/// The part of a packet: that of the packet before it in its track, a later one, or a new one.
std::size_t JoinedTime::partAt(std::int64_t time, const Track& track, bool canBegin)
{
    const auto isBefore = [&](std::size_t part) { return time + offsets[part] < *track.end - kRestart; };
    std::size_t part = track.part;
    while (part < offsets.size() && isBefore(part)) ++part;
    if (part < offsets.size()) return part;
    if (!canBegin) return track.part;
    std::int64_t end = *track.end;
    for (const Track& other : tracks) end = std::max(end, other.end.value_or(end));
    offsets.push_back(end - time);
    return part;
}

void JoinedTime::shift(AVPacket& packet, const AVStream& stream)
{
    const auto index = static_cast<std::size_t>(packet.stream_index);
    if (tracks.size() <= index) tracks.resize(index + 1);
    Track& track = tracks[index];
    const std::int64_t stamp = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
    if (stamp != AV_NOPTS_VALUE) {
        const std::int64_t time = av_rescale_q(stamp, stream.time_base, AV_TIME_BASE_Q);
        const AVMediaType type = stream.codecpar->codec_type;
        const bool isClocked = type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO;
        if (track.end) track.part = partAt(time, track, isClocked);
        const std::int64_t duration = av_rescale_q(packet.duration, stream.time_base, AV_TIME_BASE_Q);
        const std::int64_t end = time + duration + offsets[track.part];
        track.end = std::max(track.end.value_or(end), end);
    }
    const std::int64_t ticks = av_rescale_q(offsets[track.part], AV_TIME_BASE_Q, stream.time_base);
    move(packet.dts, ticks);
    move(packet.pts, ticks);
}

} // namespace tarn
