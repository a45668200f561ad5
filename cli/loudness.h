// Integrated loudness by ITU-R BS.1770.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <ebur128.h>

namespace tarn
{

/// Measures integrated loudness by ITU-R BS.1770, with gating, and momentary loudness.
class LoudnessMeter
{
public:
    /// For stereo.
    explicit LoudnessMeter(std::uint32_t sampleRateHz);

    /// For the slots of a layout: the surrounds of 5.1 and the sides of 7.1 weigh 1.5 dB more, the LFE channel is
    /// ignored.
    LoudnessMeter(std::uint32_t sampleRateHz, const Layout& layout);

    /// Adds frames of interleaved left-justified samples.
    ///
    /// headroomBits  of the samples
    void push(const std::int32_t* samples, std::size_t frames, int headroomBits = 0);

    /// Loudness of the last 400 ms, LUFS; minus infinity for silence.
    double momentary() const;

    /// LUFS; minus infinity if nothing is above the absolute gate of -70 LUFS.
    double integrated() const;

private:
    struct Closer
    {
        void operator()(ebur128_state* meter) const noexcept { ebur128_destroy(&meter); }
    };

    LoudnessMeter(std::uint32_t sampleRateHz, std::size_t channels);

    std::size_t channelCount;
    std::unique_ptr<ebur128_state, Closer> state;
    std::vector<double> fullScale; ///< samples without their headroom
};

/// Measures loudness and passes the samples to another sink, if there is one.
class LoudnessSink final : public AudioSink
{
public:
    /// headroomBits  of the samples
    LoudnessSink(const Layout& outputLayout, std::uint32_t sampleRateHz, AudioSink* next, int headroomBits = 0)
        : sink(next), headroom(headroomBits), loudness(sampleRateHz, outputLayout)
    {}

    void write(const std::int32_t* samples, std::size_t frames) override;

    void finish() override
    {
        if (sink != nullptr) sink->finish();
    }

    const LoudnessMeter& meter() const noexcept { return loudness; }

private:
    AudioSink* sink;
    int headroom;
    LoudnessMeter loudness;
};

} // namespace tarn
