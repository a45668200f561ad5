// Measures a track before it is upmixed.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/upmixer.h"
#include "film/film_options.h"

#include <cstdint>
#include <optional>

namespace tarn
{

/// A track and what it is upmixed to.
struct SurveyedTrack
{
    const FilmOptions& options;
    const Layout& layout;
    unsigned index;
    std::uint32_t rate;
};

/// A track before it is upmixed.
struct Survey
{
    StreamFormat format{};                 ///< of the decoded samples; not of a survey of samples
    double peak = 1.0;                     ///< full scale 1
    std::optional<double> loudness{};      ///< LUFS
    std::optional<double> upmixLoudness{}; ///< LUFS
};

/// What a survey measures.
struct SurveyPlan
{
    bool peak = false;
    bool loudness = false; ///< of the track
    bool upmixLoudness = false;
    bool isAtUnityGain = false; ///< the upmix has neither gain nor limiter, so it keeps the headroom
    bool samples = false;       ///< a sixth of the track only
    int headroomBits = 0;       ///< of the samples
    AudioSink* upmix = nullptr; ///< gets the upmix; can be null
};

/// The settings that the options stand for.
EngineSettings engineSettings(const FilmOptions& options, const Layout& layout);

/// Decodes a track alone, and measures it.
Survey survey(const SurveyedTrack& track, const SurveyPlan& plan);

} // namespace tarn
