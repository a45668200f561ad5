#pragma once

#include "cli/audio_sink.h"
#include "cli/stream_format.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn
{

/// What a channel of an output holds, full scale 1.
struct ChannelLevel
{
    double peak = 0.0;
    double energy = 0.0;                ///< sum of squares
    std::uint64_t fullScaleSamples = 0; ///< at the largest or the smallest value of the width
};

/// Measures every channel of what goes on to another sink.
class LevelSink final : public AudioSink
{
public:
    LevelSink(std::size_t slots, StreamFormat format, AudioSink& next)
        : sink(next), sampleBytes(format.bytesPerSample()), bits(format.bits), channels(slots)
    {}

    void write(const std::uint8_t* slots, std::size_t frames) override;
    void finish() override { sink.finish(); }

    const std::vector<ChannelLevel>& levels() const noexcept { return channels; }

private:
    AudioSink& sink;
    std::uint32_t sampleBytes;
    std::uint32_t bits;
    std::vector<ChannelLevel> channels;
};

} // namespace tarn
