// A part of an audio source.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"
#include "cli/failure.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// Provides the frames of a source from a first one on, up to a number of frames.
class WindowedSource final : public AudioSource
{
public:
    /// firstFrame  to read; the frames before it are decoded and dropped
    /// frames      largest number of frames; none: to the end
    WindowedSource(std::unique_ptr<AudioSource> inner, std::uint64_t firstFrame, std::optional<std::uint64_t> frames);

    StreamFormat format() const noexcept override { return source->format(); }
    std::optional<std::uint64_t> expectedFrames() const noexcept override;
    FileIdentity identity() const noexcept override { return source->identity(); }
    Metadata metadata() override { return source->metadata(); }
    bool isSlow() const noexcept override { return source->isSlow(); }
    bool canExceedFullScale() const noexcept override { return source->canExceedFullScale(); }
    std::vector<std::string> prepare(bool showProgress, PeakPlan plan) override
    {
        return source->prepare(showProgress, plan);
    }
    int headroomBits() const noexcept override { return source->headroomBits(); }
    double scale() const noexcept override { return source->scale(); }
    std::size_t read(std::int32_t* stereo, std::size_t capacity) override;
    bool canRewind() const noexcept override { return source->canRewind(); }
    void rewind() override;
    std::uint64_t clippedSamples() const noexcept override { return source->clippedSamples() - clippedBefore; }

    /// None if the source was not read to its end.
    std::optional<Loss> loss() const override { return ended ? source->loss() : std::nullopt; }

    /// Frames of the source so far, with those before the window.
    std::uint64_t position() const noexcept { return done; }

private:
    std::unique_ptr<AudioSource> source;
    std::uint64_t first;
    std::uint64_t limit; ///< frame after the last
    std::uint64_t done = 0;
    std::uint64_t clippedBefore = 0; ///< samples before the window
    bool ended = false;
};

/// The failure for a source that ended before its window.
///
/// start  as given
/// name   of the input
Failure startAfterEnd(const std::optional<std::string>& start, const std::string& name, const WindowedSource& source);

} // namespace tarn
