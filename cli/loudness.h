#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/stream_format.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <ebur128.h>

namespace tarn
{

/// The integrated loudness of BS.1770, with its gates.
class LoudnessMeter
{
public:
    /// For stereo.
    explicit LoudnessMeter(std::uint32_t sampleRateHz);

    /// For the slots of a layout: surrounds at the sides count 1.5 dB more, the low-frequency channel does not count.
    LoudnessMeter(std::uint32_t sampleRateHz, const Layout& layout);

    /// Takes up interleaved left-justified frames.
    void push(const std::int32_t* samples, std::size_t frames);

    /// LUFS; minus infinity where nothing is above the absolute gate of -70 LUFS.
    double integrated() const;

private:
    struct Closer
    {
        void operator()(ebur128_state* meter) const noexcept { ebur128_destroy(&meter); }
    };

    LoudnessMeter(std::uint32_t sampleRateHz, std::size_t channels);

    std::unique_ptr<ebur128_state, Closer> state;
};

/// Measures the loudness of what goes on to another sink, if there is one.
class LoudnessSink final : public AudioSink
{
public:
    LoudnessSink(const Layout& outputLayout, StreamFormat format, AudioSink* next)
        : sink(next),
          slotCount(outputLayout.slots),
          sampleBytes(format.bytesPerSample()),
          loudness(format.sampleRate, outputLayout)
    {}

    void write(const std::uint8_t* slots, std::size_t frames) override;

    void finish() override
    {
        if (sink != nullptr) sink->finish();
    }

    const LoudnessMeter& meter() const noexcept { return loudness; }

private:
    AudioSink* sink;
    std::size_t slotCount;
    std::uint32_t sampleBytes;
    LoudnessMeter loudness;
    std::vector<std::int32_t> samples;
};

} // namespace tarn
