// Converts sample rates with libsoxr.
// SPDX-License-Identifier: MIT
#include "cli/resampled_source.h"

#include "cli/decibels.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/text.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <string>

namespace tarn
{

namespace
{

constexpr std::size_t kChannels = 2;
constexpr std::size_t kChunkFrames = 4096;
constexpr std::uint32_t kMinBits = 24; ///< of the result, whose samples differ from the source

} // namespace

ResampledSource::ResampledSource(std::unique_ptr<AudioSource> inner, std::uint32_t rateHz)
    : source(std::move(inner)),
      rate(rateHz),
      sourceRate(source->format().sampleRate),
      bits(std::max(source->format().bits, kMinBits)),
      input(kChannels * kChunkFrames),
      waiting(kChannels * kChunkFrames)
{
    begin();
}

void ResampledSource::begin()
{
    const soxr_io_spec_t samples = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    converter.reset(soxr_create(sourceRate, rate, kChannels, nullptr, &samples, &quality, nullptr));
    if (converter == nullptr) throw std::bad_alloc();
    waitingFrom = waitingFrames = 0;
    sourceEnded = false;
    sourceFrames = produced = clipped = 0;
}

void ResampledSource::rewind()
{
    source->rewind();
    begin();
}

std::optional<std::uint64_t> ResampledSource::expectedFrames() const noexcept
{
    const auto frames = source->expectedFrames();
    return frames ? std::optional(framesAtRate(*frames, sourceRate, rate)) : std::nullopt;
}

std::vector<std::string> ResampledSource::prepare(bool showProgress, PeakPlan plan)
{
    std::vector<std::string> notes = source->prepare(showProgress, plan);
    notes.push_back("converted from " + std::to_string(sourceRate) + " to " + std::to_string(rate) + " Hz");
    if (plan.keep) {
        headroom = kHeadroomBits;
        return notes;
    }
    if (plan.sharedPeak) {
        if (!source->canExceedFullScale()) ownScale = 1.0 / std::max(*plan.sharedPeak, 1.0);
        return notes;
    }
    if (!canRewind()) return notes;
    watchesPeak = plan.canStartOver;
    if (watchesPeak) return notes;

    if (sourceFrames > 0) rewind();
    Progress progress("finding the peak", expectedFrames(), rate, showProgress);
    double peak = 0.0;
    converted.resize(kChannels * kChunkFrames);
    while (const std::size_t frames = convert(converted.data(), kChunkFrames)) {
        throwIfInterrupted();
        for (std::size_t i = 0; i < frames * kChannels; ++i) peak = std::max(peak, std::abs(converted[i]));
        progress.advance(frames);
    }
    rewind();
    if (peak > 1.0) {
        ownScale = 1.0 / peak;
        notes.back() += formatted(", which raises its peak above full scale: scaled down by %.2f dB", decibels(peak));
    }
    return notes;
}

/// Converts frames; limits the result to the exact length.
std::size_t ResampledSource::convert(double* stereo, std::size_t capacity)
{
    while (true) {
        if (waitingFrom == waitingFrames && !sourceEnded) {
            waitingFrom = 0;
            waitingFrames = source->read(input.data(), kChunkFrames);
            sourceFrames += waitingFrames;
            sourceEnded = waitingFrames == 0;
            for (std::size_t i = 0; i < kChannels * waitingFrames; ++i) waiting[i] = input[i] * 0x1p-31;
        }
        std::size_t used = 0;
        std::size_t made = 0;
        const soxr_error_t error =
            soxr_process(converter.get(), sourceEnded ? nullptr : waiting.data() + kChannels * waitingFrom,
                         waitingFrames - waitingFrom, &used, stereo, capacity, &made);
        if (error != nullptr)
            throw Failure(EX_SOFTWARE, std::string("the sample rate cannot be converted: ") + error +
                                           "; free some memory if it ran out");
        waitingFrom += used;
        if (sourceEnded) {
            // The converter may round the length differently.
            const std::uint64_t left = framesAtRate(sourceFrames, sourceRate, rate) - produced;
            if (made == 0) {
                made = static_cast<std::size_t>(std::min<std::uint64_t>(left, capacity));
                std::fill_n(stereo, kChannels * made, 0.0);
            }
            made = static_cast<std::size_t>(std::min<std::uint64_t>(made, left));
        }
        produced += made;
        if (made > 0 || sourceEnded) return made;
    }
}

std::size_t ResampledSource::read(std::int32_t* stereo, std::size_t capacity)
{
    constexpr double kRounding = 0x1p-40; // of the scale
    const double factor = std::ldexp(ownScale, source->headroomBits() - headroom);
    converted.resize(kChannels * capacity);
    const std::size_t frames = convert(converted.data(), capacity);
    for (std::size_t i = 0; i < kChannels * frames; ++i) {
        const double sample = converted[i] * factor;
        if (watchesPeak && std::abs(sample) > 1.0) throw AboveFullScale{};
        if (std::abs(sample) > 1.0 + kRounding) ++clipped;
        stereo[i] = fromFullScale(sample);
    }
    return frames;
}

} // namespace tarn
