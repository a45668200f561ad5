// Chooses headroom, gain and dialogue level.
// SPDX-License-Identifier: MIT
#include "film/upmix_plan.h"

#include "cli/audio_source.h"
#include "cli/decibels.h"
#include "cli/gain_stage.h"
#include "cli/progress.h"
#include "cli/text.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
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

/// Upmixes the track into a temporary file, and finds the gain that matches its loudness.
void matchLoudness(Plan& plan, const SurveyedTrack& track, const Encoding& encoding, SurveyPlan wanted)
{
    RowStore rows(std::filesystem::path(track.options.output).parent_path(), track.layout.slots);
    wanted.loudness = wanted.upmixLoudness = wanted.isAtUnityGain = true;
    wanted.upmix = &rows;
    const Survey found = survey(track, wanted);
    LoudnessReport loudness{.input = *found.loudness, .atUnityGain = *found.upmixLoudness, .output = 0.0};
    const StoredUpmix stored{.name = track.options.input,
                             .rows = rows,
                             .layout = track.layout,
                             .format = encoding.formatOf(found.format),
                             .level = {.limiter = plan.settings.room.limiter, .headroomBits = wanted.headroomBits},
                             .isQuiet = track.options.quiet,
                             .showsProgress = !track.options.quiet && !track.options.inBatch};
    const double gainDb = matchingGainDb(stored, loudness);
    loudness.output = replay(stored, "measuring loudness", gainDb, nullptr).loudness;
    if (wanted.peak) plan.peak = found.peak;
    plan.settings.room.gainDb = gainDb + decibels(plan.peak);
    checkMatchingGain(track.options.input, plan.settings.room.gainDb);
    plan.loudness = loudness;
}

/// The loudness of the upmix with its gain and limiter, LUFS.
double measureUpmix(Plan& plan, const SurveyedTrack& track, SurveyPlan wanted)
{
    const Survey found = survey(track, wanted);
    if (wanted.peak) plan.peak = found.peak;
    const double loudness = found.upmixLoudness.value_or(-HUGE_VAL);
    return wanted.isAtUnityGain ? loudness - decibels(plan.peak) + plan.settings.room.gainDb : loudness;
}

} // namespace

Plan planOf(const SurveyedTrack& track, const Encoding& encoding, bool exceeds)
{
    Plan plan{.settings = engineSettings(track.options, track.layout)};
    const bool isLimited = plan.settings.room.limiter;
    const bool isMatched = track.options.loudnessMatch;
    const bool storesLoudness = encoding.hasDialogueLevel && track.options.dialnorm == "auto";
    if (isMatched || (exceeds && isLimited)) plan.headroomBits = kHeadroomBits;
    const SurveyPlan wanted{.peak = exceeds && !isLimited,
                            .upmixLoudness = storesLoudness,
                            .isAtUnityGain = !isLimited,
                            .samples = !isMatched && !(exceeds && !isLimited),
                            .headroomBits = exceeds || isMatched ? kHeadroomBits : 0};
    double loudness = -HUGE_VAL;
    if (isMatched) {
        matchLoudness(plan, track, encoding, wanted);
        loudness = plan.loudness->output;
    } else if (wanted.peak || wanted.upmixLoudness) {
        loudness = measureUpmix(plan, track, wanted);
    }
    plan.dialogueLevel = dialogueLevelOf(track.options, loudness);
    if (plan.peak > 1.0 && !track.options.quiet) {
        const std::string excess = formatted("%.2f dB", decibels(plan.peak));
        printNote(track.options.input + ": peak +" + excess + " above full scale: scaled down by " + excess);
    }
    return plan;
}

} // namespace tarn
