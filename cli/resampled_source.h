// Sample rate conversion of an audio source.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"

#include <memory>
#include <vector>

#include <soxr.h>

namespace tarn
{

/// Converts a source to another sample rate with libsoxr: very high quality, linear phase.
///
/// Adds no delay: frame k of the result is at the time k / rate. The result has round(frames * rate / source rate)
/// frames. Conversion can raise peaks above full scale. Either they are kept in a headroom, or, if the source can be
/// read twice, prepare finds the peak and one gain scales everything down; otherwise such samples are clipped.
class ResampledSource final : public AudioSource
{
public:
    /// rateHz  of the result
    ResampledSource(std::unique_ptr<AudioSource> inner, std::uint32_t rateHz);

    StreamFormat format() const noexcept override { return {.sampleRate = rate, .bits = bits}; }
    std::optional<std::uint64_t> expectedFrames() const noexcept override;
    FileIdentity identity() const noexcept override { return source->identity(); }
    Metadata metadata() override { return atRate(source->metadata(), sourceRate, rate); }
    bool isSlow() const noexcept override { return canRewind(); }
    bool canExceedFullScale() const noexcept override { return true; }
    std::vector<std::string> prepare(bool showProgress, PeakPlan plan) override;
    int headroomBits() const noexcept override { return headroom; }
    double scale() const noexcept override { return ownScale * source->scale(); }
    std::size_t read(std::int32_t* stereo, std::size_t capacity) override;
    bool canRewind() const noexcept override { return source->canRewind(); }
    void rewind() override;
    std::uint64_t clippedSamples() const noexcept override { return source->clippedSamples() + clipped; }
    std::optional<Loss> loss() const override { return source->loss(); }

private:
    struct Closer
    {
        void operator()(soxr_t opened) const noexcept { soxr_delete(opened); }
    };

    void begin();
    std::size_t convert(double* stereo, std::size_t capacity);

    std::unique_ptr<AudioSource> source;
    std::uint32_t rate;
    std::uint32_t sourceRate;
    std::uint32_t bits;
    std::unique_ptr<soxr, Closer> converter;
    std::vector<std::int32_t> input; ///< frames of the source
    std::vector<double> waiting;     ///< the same, full scale 1
    std::size_t waitingFrom = 0;     ///< first frame that the converter has not consumed
    std::size_t waitingFrames = 0;   ///< number of frames
    bool sourceEnded = false;
    std::uint64_t sourceFrames = 0; ///< read so far
    std::uint64_t produced = 0;     ///< frames of the result so far
    int headroom = 0;
    double ownScale = 1.0;
    bool watchesPeak = false;  ///< read throws AboveFullScale
    std::uint64_t clipped = 0; ///< samples
    std::vector<double> converted;
};

} // namespace tarn
