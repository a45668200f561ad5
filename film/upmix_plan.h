// Levels of an upmixed track.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/loudness_match.h"
#include "film/encoding.h"
#include "film/track_survey.h"

#include <optional>

namespace tarn
{

/// How a track is upmixed.
struct Plan
{
    EngineSettings settings;
    int headroomBits = 0;
    double peak = 1.0; ///< beyond full scale, by which the track is scaled down
    int dialogueLevel = -31;
    std::optional<LoudnessReport> loudness{}; ///< only with --loudness-match
};

/// Measures what the options need, and prints a note if the track is scaled down.
///
/// exceeds  whether samples of the track can be beyond full scale: they get headroom in front of a limiter, and without
///          one, the track is scaled down by its peak
Plan planOf(const SurveyedTrack& track, const Encoding& encoding, bool exceeds);

} // namespace tarn
