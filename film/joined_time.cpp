// Time stamps of joined recordings.
// SPDX-License-Identifier: MIT
#include "film/joined_time.h"

#include <algorithm>
#include <cstdint>

namespace tarn
{

namespace
{

/// A larger step back is a clock that starts again; a smaller one is a damaged time stamp.
constexpr std::int64_t kRestart = AV_TIME_BASE;

/// A larger step forward of all tracks is another clock; a smaller one is lost packets. FFmpeg's command has this
/// limit.
constexpr std::int64_t kJump = 10 * std::int64_t{AV_TIME_BASE};

/// Ticks of AV_TIME_BASE. FFmpeg's macro AV_TIME_BASE_Q is C, not C++.
constexpr AVRational kTimeBase{1, AV_TIME_BASE};

void move(std::int64_t& time, std::int64_t ticks)
{
    if (time != AV_NOPTS_VALUE) time += ticks;
}

} // namespace

/// The end of the packets of all tracks so far.
std::int64_t JoinedTime::latestEnd() const
{
    std::int64_t latest = INT64_MIN;
    for (const Track& track : tracks) latest = std::max(latest, track.end.value_or(latest));
    return latest;
}

/// The part of a packet: that of the packet before it in its track, a later one, an earlier one, or a new one.
std::size_t JoinedTime::partAt(std::int64_t time, const Track& track, bool canBegin)
{
    const std::int64_t latest = latestEnd();
    const auto isIn = [&](std::size_t part) {
        const std::int64_t moved = time + offsets[part];
        return moved >= *track.end - kRestart && moved <= latest + kJump;
    };
    for (std::size_t part = track.part; part < offsets.size(); ++part)
        if (isIn(part)) return part;
    // After a damaged time stamp, the clock continues where it was.
    for (std::size_t part = track.part; part > 0; --part)
        if (isIn(part - 1)) return part - 1;
    if (!canBegin) return track.part;
    offsets.push_back(latest - time);
    return offsets.size() - 1;
}

void JoinedTime::shift(AVPacket& packet, const AVStream& stream)
{
    const auto index = static_cast<std::size_t>(packet.stream_index);
    if (tracks.size() <= index) tracks.resize(index + 1);
    Track& track = tracks[index];
    const std::int64_t stamp = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
    if (stamp != AV_NOPTS_VALUE) {
        const std::int64_t time = av_rescale_q(stamp, stream.time_base, kTimeBase);
        const AVMediaType type = stream.codecpar->codec_type;
        const bool isClocked = type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO;
        track.part = track.end ? partAt(time, track, isClocked) : offsets.size() - 1;
        const std::int64_t duration = av_rescale_q(packet.duration, stream.time_base, kTimeBase);
        const std::int64_t end = time + duration + offsets[track.part];
        track.end = std::max(track.end.value_or(end), end);
    }
    const std::int64_t ticks = av_rescale_q(offsets[track.part], kTimeBase, stream.time_base);
    move(packet.dts, ticks);
    move(packet.pts, ticks);
}

} // namespace tarn
