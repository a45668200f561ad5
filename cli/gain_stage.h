// Gain and limiter of an upmix that was computed with headroom.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/stream_format.h"
#include "room/limiter.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tarn
{

/// Lowers samples by a number of bits, rounded.
void addHeadroom(std::span<std::int32_t> samples, int bits) noexcept;

/// Level of an output.
struct OutputLevel
{
    double gainDb = 0.0;
    bool limiter = false; ///< instead of clipping
    int headroomBits = 0; ///< of the samples before the gain
};

/// What happened to samples beyond full scale.
struct PeakCounts
{
    std::uint64_t clipped = 0;       ///< samples
    std::uint64_t limitedBlocks = 0; ///< blocks of 64 frames in which the limiter had an effect
    double limiterGain = 1.0;        ///< smallest gain of the limiter
};

/// Applies gain and limiter to samples with headroom, and rounds them to the width of the output.
///
/// The limiter is that of UpmixStream. Samples between engine and gain are not rounded to the width of the output, so
/// an output can differ from that of a stream of this width by one step.
class GainStage final : public AudioSink
{
public:
    /// slots  per frame, at most 8
    GainStage(std::size_t slots, StreamFormat format, const OutputLevel& level, AudioSink& next);

    /// Delays by up to 64 frames until flush.
    void write(const std::int32_t* samples, std::size_t frames) override;

    /// Writes the frames that remain after the last write.
    void flush();

    void finish() override { sink.finish(); }

    const PeakCounts& counts() const noexcept { return peaks; }

private:
    void processBlock();
    std::int32_t rounded(double sample);

    std::size_t slots;
    std::uint32_t shift; ///< from 32 bits to the width of the output
    double factor;
    bool isLimited;
    AudioSink& sink;
    zrk_tarn::Limiter limiter;
    std::size_t filled = 0;      ///< frames in the rows of the limiter
    std::uint64_t consumed = 0;  ///< frames
    std::uint64_t delivered = 0; ///< frames
    bool hasDelayedBlock = false;
    PeakCounts peaks;
    std::vector<std::int32_t> output; ///< a block, interleaved
};

} // namespace tarn
