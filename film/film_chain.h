// Engine, gain and limiter behind a track.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/gain_stage.h"
#include "cli/upmixer.h"

#include <optional>

namespace tarn
{

/// Upmixes a track. Samples with headroom get gain and limiter behind the engine, in a stage of their own.
class FilmChain
{
public:
    /// format        of the output
    /// headroomBits  of the samples that push gets
    FilmChain(const Layout& layout, StreamFormat format, const EngineSettings& settings, int headroomBits,
              AudioSink& sink);

    FilmChain(const FilmChain&) = delete;
    FilmChain& operator=(const FilmChain&) = delete;

    /// Upmixes frames of interleaved left-justified stereo.
    void push(const std::int32_t* stereo, std::size_t frames) { upmixer.push(stereo, frames); }

    /// Writes the frames that remain after the last push.
    void finish();

    /// Frames pushed so far.
    std::uint64_t frames() const noexcept { return upmixer.frames(); }

    /// Samples beyond full scale behind the gain.
    std::uint64_t clippedSamples() const noexcept;

private:
    std::optional<GainStage> stage;
    Upmixer upmixer;
};

} // namespace tarn
