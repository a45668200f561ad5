#pragma once

#include "cli/audio_source.h"

#include <memory>
#include <vector>

#include <soxr.h>

namespace tarn
{

/// A source at another sample rate, converted by libsoxr at its very high quality with linear phase.
///
/// Sound stays at its place: the frame k of the result is at the time k / rate. The result has
/// round(frames * rate / source rate) frames. Conversion can raise peaks above full scale: where the source can be read
/// twice, prepare finds the peak, and the whole is scaled down by one gain; otherwise such samples are clipped.
class ResampledSource final : public AudioSource
{
public:
    /// rateHz  to convert to
    ResampledSource(std::unique_ptr<AudioSource> inner, std::uint32_t rateHz);

    StreamFormat format() const noexcept override { return {.sampleRate = rate, .bits = bits}; }
    std::optional<std::uint64_t> expectedFrames() const noexcept override;
    FileIdentity identity() const noexcept override { return source->identity(); }
    Metadata metadata() override { return atRate(source->metadata(), sourceRate, rate); }
    std::vector<std::string> prepare(bool showProgress) override;
    std::size_t read(std::int32_t* stereo, std::size_t capacity) override;
    bool canRewind() const noexcept override { return source->canRewind(); }
    void rewind() override;
    std::uint64_t clippedSamples() const noexcept override { return clipped; }
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
    std::vector<std::int32_t> taken; ///< frames of the source
    std::vector<double> waiting;     ///< the same in units of full scale
    std::size_t waitingFrom = 0;     ///< the first of them that the converter has not taken, in frames
    std::size_t waitingFrames = 0;   ///< number of them
    bool sourceEnded = false;
    std::uint64_t sourceFrames = 0; ///< read so far
    std::uint64_t given = 0;        ///< frames of the result
    double gain = 1.0;
    std::uint64_t clipped = 0; ///< samples
    std::vector<double> converted;
};

} // namespace tarn
