// Measures a track before it is upmixed.
// SPDX-License-Identifier: MIT
#pragma once

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
    double peak = 1.0;                        ///< full scale 1
    std::optional<double> loudness{};         ///< LUFS
    std::optional<double> upmixAtUnityGain{}; ///< its loudness, LUFS
};

/// What a survey measures.
struct SurveyPlan
{
    bool peak = false;
    bool loudness = false;      ///< of the track
    bool upmixLoudness = false; ///< with neither gain nor limiter
    bool samples = false;       ///< a sixth of the track only
};

/// The settings that the options stand for.
EngineSettings engineSettings(const FilmOptions& options, const Layout& layout);

/// Decodes a track alone, and measures it.
///
/// headroomBits  of the samples
Survey survey(const SurveyedTrack& track, SurveyPlan plan, int headroomBits);

} // namespace tarn
