// Decodes a stereo track into samples without gaps.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/stream_format.h"
#include "film/av.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// Decodes a track and converts it to left-justified 32-bit integers at the rate of the upmix.
///
/// Follows the time stamps: a gap becomes silence, and what overlaps is cut.
class TrackDecoder
{
public:
    /// Receives interleaved stereo and a number of frames.
    using Consumer = std::function<void(const std::int32_t*, std::size_t)>;

    /// rateHz  of the output; 0: that of the track
    ///
    /// Throws Failure (EX_DATAERR) if there is no decoder.
    TrackDecoder(const std::string& film, const AVStream& stream, std::uint32_t rateHz, Consumer consumer);

    /// Rate of the output, and the width of the samples: that of the track, 32 bits for lossy codecs.
    StreamFormat format() const noexcept { return {.sampleRate = rate, .bits = bits}; }

    /// Decodes a packet of the track; null at its end.
    void decode(const AVPacket* packet);

    /// Time of the first frame in frames of the output; none before there is one.
    std::optional<std::int64_t> start() const noexcept { return firstFrame; }

    /// Packets that could not be decoded.
    int errors() const noexcept { return decodeErrors; }

    /// Silence that replaces missing sound, in frames.
    std::int64_t filledFrames() const noexcept { return filled; }

private:
    void receiveFrames();
    void convert(const AVFrame* frame);
    void align(const AVFrame& frame);
    void openResampler(const AVFrame& frame);

    std::string name;
    Consumer consume;
    AVRational timeBase;
    Codec decoder;
    std::uint32_t rate;
    std::uint32_t bits;
    Resampler resampler;
    int inputRate = 0;
    Frame decoded = newFrame();
    std::vector<std::int32_t> samples;
    std::optional<std::int64_t> firstFrame;
    std::int64_t inputFrames = 0; ///< since the first frame, at the track's rate, with silence for gaps
    std::int64_t firstPts = 0;
    std::int64_t toDrop = 0; ///< frames at the track's rate that overlap
    std::int64_t filled = 0;
    int decodeErrors = 0;
};

} // namespace tarn
