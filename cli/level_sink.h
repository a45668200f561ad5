// Measures peak and energy of each output channel.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn
{

/// Level of an output channel, full scale 1.
struct ChannelLevel
{
    double peak = 0.0;
    double energy = 0.0;                ///< sum of squares
    std::uint64_t fullScaleSamples = 0; ///< samples at the largest or the smallest value of the width
};

/// Measures every channel and passes the samples to another sink.
class LevelSink final : public AudioSink
{
public:
    /// slots       2 to 8
    /// sampleBits  width of the samples
    LevelSink(std::size_t slots, std::uint32_t sampleBits, AudioSink& next)
        : sink(next), largest(INT32_MAX >> (32 - sampleBits) << (32 - sampleBits)), channels(slots)
    {}

    void write(const std::int32_t* samples, std::size_t frames) override;
    void finish() override { sink.finish(); }

    const std::vector<ChannelLevel>& levels() const noexcept { return channels; }

private:
    void measurePeaks(const std::int32_t* first, std::size_t frames, ChannelLevel& channel) const noexcept;

    AudioSink& sink;
    std::int32_t largest; ///< sample of the width
    std::vector<ChannelLevel> channels;
};

} // namespace tarn
