// Chooses headroom, gain and dialogue level.
// SPDX-License-Identifier: MIT
#include "film/upmix_plan.h"

#include "cli/audio_source.h"
#include "cli/decibels.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "stream/gain.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace tarn
{

namespace
{

/// The dialogue level for a loudness: players turn a track down by the difference from -31.
int dialogueLevelOf(const FilmOptions& options, double loudness)
{
    constexpr double kLowest = -31.0;
    constexpr double kHighest = -1.0;
    if (options.dialnorm != "auto") return std::stoi(options.dialnorm);
    if (!std::isfinite(loudness)) return static_cast<int>(kLowest);
    return static_cast<int>(std::lround(std::clamp(loudness, kLowest, kHighest)));
}

} // namespace

Plan planOf(const SurveyedTrack& track, const Encoding& encoding, bool exceeds)
{
    Plan plan{.settings = engineSettings(track.options, track.layout)};
    double& gainDb = plan.settings.room.gainDb;
    const bool isLimited = plan.settings.room.limiter;
    const bool isMatched = track.options.loudnessMatch;
    const bool storesLoudness = encoding.hasDialogueLevel && track.options.dialnorm == "auto";
    if (exceeds && isLimited) plan.headroomBits = kHeadroomBits;
    const bool needsPeak = exceeds && !isLimited;
    const SurveyPlan wanted{.peak = needsPeak,
                            .loudness = isMatched,
                            .upmixLoudness = isMatched || storesLoudness,
                            .samples = !needsPeak && !isMatched};
    Survey found;
    if (wanted.peak || wanted.upmixLoudness) found = survey(track, wanted, exceeds ? kHeadroomBits : 0);
    if (wanted.peak) plan.peak = found.peak;
    const double upmixed = found.upmixAtUnityGain.value_or(-HUGE_VAL) - decibels(plan.peak);
    if (isMatched && std::isfinite(*found.loudness) && std::isfinite(upmixed))
        gainDb = std::min(*found.loudness - upmixed, zrk_tarn::kMaxGainDb);
    plan.dialogueLevel = dialogueLevelOf(track.options, upmixed + gainDb);
    if (plan.peak > 1.0 && !track.options.quiet) {
        const std::string excess = formatted("%.2f dB", decibels(plan.peak));
        printNote(track.options.input + ": peak +" + excess + " above full scale: scaled down by " + excess);
    }
    return plan;
}

} // namespace tarn
