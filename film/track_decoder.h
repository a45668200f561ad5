// Decodes a stereo track into samples without gaps.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/stream_format.h"
#include "film/av.h"
#include "film/film_loss.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// What a track is converted to.
struct TrackConversion
{
    std::uint32_t rateHz = 0;           ///< 0: that of the track
    int headroomBits = 0;               ///< of the samples
    double peak = 1.0;                  ///< by which samples that can exceed full scale are divided
    std::optional<double> endSeconds{}; ///< of the film; later time stamps are wrong
};

/// Decodes a track and converts it to left-justified 32-bit integers at the rate of the upmix.
///
/// Follows the time stamps: a gap becomes silence, and what overlaps is cut. A time stamp that the next one contradicts
/// is ignored.
class TrackDecoder
{
public:
    /// Receives interleaved stereo and a number of frames.
    using Consumer = std::function<void(const std::int32_t*, std::size_t)>;

    /// Throws Failure (EX_DATAERR) if there is no decoder.
    TrackDecoder(const std::string& film, const AVStream& stream, const TrackConversion& conversion, Consumer consumer);

    /// Rate of the output, and the width of the samples: that of the track; 24 or more if the rate is converted; 32 for
    /// lossy codecs.
    StreamFormat format() const noexcept { return {.sampleRate = rate, .bits = bits}; }

    /// Whether samples can be beyond full scale: those of lossy and floating-point codecs, and converted ones.
    static bool canExceedFullScale(const AVStream& stream, std::uint32_t rateHz) noexcept;

    /// Decodes a packet of the track; null at its end.
    void decode(const AVPacket* packet);

    /// Time of the first frame in frames of the output; none before there is one.
    std::optional<std::int64_t> start() const noexcept { return firstFrame; }

    /// The largest magnitude so far, full scale 1, before the scale; 0 if samples cannot exceed full scale.
    double peak() const noexcept { return largest; }

    /// Samples beyond full scale and scale, which are clipped.
    std::uint64_t clippedSamples() const noexcept { return clipped; }

    /// The damage so far.
    TrackDamage damage() const noexcept;

private:
    void receiveFrames();
    void noteChange(const AVFrame& frame);
    std::optional<std::int64_t> timeOf(const AVFrame& frame) const;
    void releaseFirst();
    bool isNextTooEarly(const AVFrame& frame, std::int64_t time, std::int64_t nextTime) const;
    bool isContradicted(const AVFrame& frame, std::int64_t time, std::int64_t jump,
                        std::optional<std::int64_t> nextTime) const;
    bool isJitter(const AVFrame& frame, std::int64_t jump) const;
    std::int64_t toleranceOf(const AVFrame& frame) const;
    void align(const AVFrame& frame, std::optional<std::int64_t> time);
    bool isGapPossible(std::int64_t frames, std::int64_t time, const AVFrame& frame) const;
    void fill(const AVFrame& like, std::int64_t frames);
    void convert(const AVFrame* frame);
    void scaleSamples(std::size_t count);
    void openResampler(const AVFrame& frame);
    std::uint64_t atOutputRate(std::int64_t frames) const;
    void markDamage(std::int64_t place);

    std::string name;
    Consumer consume;
    AVRational timeBase;
    Codec decoder;
    int headroomBits;
    double scale; ///< of samples that can exceed full scale
    std::optional<double> endSeconds;
    std::uint32_t rate;
    std::uint32_t bits;
    bool exceeds;
    Resampler resampler;
    int inputRate = 0;
    int inputFormat = AV_SAMPLE_FMT_NONE;
    Frame decoded = newFrame();
    std::deque<Frame> waiting;      ///< for the time stamps of later ones
    int longestFrame = 0;           ///< in samples per channel
    std::int64_t waitingFrames = 0; ///< of these, in samples per channel
    bool isChanged = false;         ///< the newest packet is not stereo
    std::vector<std::int32_t> samples;
    std::vector<double> wide; ///< samples that can exceed full scale
    double largest = 0.0;
    std::uint64_t clipped = 0;
    std::optional<std::int64_t> firstFrame;
    std::int64_t inputFrames = 0; ///< since the first frame, at the track's rate, with silence for gaps
    std::int64_t firstPts = 0;
    std::int64_t toDrop = 0; ///< frames at the track's rate that overlap
    std::int64_t lostAtEnd =
        0; ///< length of the packets since the last frame that cannot be decoded, in the track's time base
    TrackDamage found;
};

} // namespace tarn
