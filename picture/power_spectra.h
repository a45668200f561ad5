// Power spectra of all outputs at regular times.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <kiss_fftr.h>

namespace tarn
{

/// Collects samples and transforms windows of them: Hann, 4096 points up to 64 kHz, and as long in time above it.
///
/// A sine wave at full scale has the power 1 in its bin.
class PowerSpectra
{
public:
    PowerSpectra(std::size_t channels, std::uint32_t sampleRate);

    std::size_t points() const noexcept { return size; }
    std::size_t bins() const noexcept { return size / 2 + 1; }
    std::size_t channels() const noexcept { return waiting.size(); }

    /// Appends a sample of a channel, full scale 1. All channels get the same number of samples.
    void append(std::size_t channel, float sample) { waiting[channel].push_back(sample); }

    /// Mirrors the last samples, for the windows of the last frames: a cut would sound like a click. The first samples
    /// are mirrored, too.
    void appendMirrored();

    /// Whether all samples of the window around a frame are there.
    bool hasWindowAround(std::uint64_t frame) const noexcept;

    /// Computes the spectra of the window around a frame.
    void transform(std::uint64_t frame);

    /// The last spectrum of a channel. [bins()]
    const float* power(std::size_t channel) const noexcept { return powers[channel].data(); }

    /// Forgets the samples before the window around a frame.
    void forgetBefore(std::uint64_t frame);

private:
    void mirrorBegin();

    struct Closer
    {
        void operator()(kiss_fftr_cfg opened) const noexcept { kiss_fftr_free(opened); }
    };

    std::size_t size;      ///< points of a window
    bool hasBegin = false; ///< the samples before the first frame are set
    std::unique_ptr<kiss_fftr_state, Closer> transformer;
    std::vector<float> window;
    std::vector<float> windowed;
    std::vector<kiss_fft_cpx> spectrum;
    std::vector<std::vector<float>> waiting; ///< samples of each channel, from half a window before the first frame
    std::uint64_t firstWaiting = 0;          ///< frame of the first one plus half a window
    std::vector<std::vector<float>> powers;  ///< of each channel
};

} // namespace tarn
