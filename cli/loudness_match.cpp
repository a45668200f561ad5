// Finds the gain that makes a stored upmix as loud as its source.
// SPDX-License-Identifier: MIT
#include "cli/loudness_match.h"

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/loudness.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "stream/gain.h"

namespace tarn
{

namespace
{

constexpr double kAudibleShortfallLu = 0.3;

/// Raises a gain by what the limiter takes away, within the maximum gain. Stops at a small difference, and after two
/// steps.
double gainThroughLimiterDb(const StoredUpmix& upmix, double inputLoudness, double gainDb)
{
    constexpr double kToleranceLu = 0.2;
    constexpr double kTypicalSlope = 1.0 / 1.5; ///< LU per dB of gain on music that is limited
    constexpr double kMinSlope = 0.25;
    const auto loudnessAt = [&](double gain) { return replay(upmix, "measuring loudness", gain, nullptr).loudness; };
    const auto raised = [&](double gain, double loudness, double slope) {
        const double missing = inputLoudness - loudness;
        if (!std::isfinite(missing) || missing < kToleranceLu) return gain;
        return std::max(gain, std::min(gain + missing / slope, zrk_tarn::kMaxGainDb));
    };
    const double loudness = loudnessAt(gainDb);
    const double nextGainDb = raised(gainDb, loudness, kTypicalSlope);
    if (nextGainDb - gainDb < kToleranceLu / kMinSlope) return nextGainDb;
    const double nextLoudness = loudnessAt(nextGainDb);
    const double slope = std::max(kMinSlope, (nextLoudness - loudness) / (nextGainDb - gainDb));
    return raised(nextGainDb, nextLoudness, slope);
}

} // namespace

void checkMatchingGain(const std::string& name, double gainDb)
{
    if (gainDb > zrk_tarn::kMaxGainDb)
        throw Failure(EX_DATAERR, name + ": matching its loudness needs a gain of " + formatted("%.1f dB", gainDb) +
                                      ", and " + formatted("%.0f", zrk_tarn::kMaxGainDb) +
                                      " dB is the maximum; leave --loudness-match out");
}

ReplayedUpmix replay(const StoredUpmix& upmix, const char* label, double gainDb, AudioSink* output)
{
    Progress progress(label, upmix.rows.frames(), upmix.format.sampleRate, upmix.showsProgress);
    LoudnessSink loudness(upmix.layout, upmix.format.sampleRate, output);
    OutputLevel level = upmix.level;
    level.gainDb = gainDb;
    GainStage stage(upmix.layout.slots, upmix.format, level, loudness);
    upmix.rows.replay(stage, progress);
    stage.flush();
    return {.loudness = loudness.meter().integrated(), .peaks = stage.counts()};
}

double matchingGainDb(const StoredUpmix& upmix, const LoudnessReport& loudness)
{
    if (!std::isfinite(loudness.input) || !std::isfinite(loudness.atUnityGain)) {
        if (!upmix.isQuiet) printNote(upmix.name + ": too quiet to measure its loudness; the gain stays 0 dB");
        return 0.0;
    }
    const double gainDb = loudness.input - loudness.atUnityGain;
    checkMatchingGain(upmix.name, gainDb);
    return upmix.level.limiter ? gainThroughLimiterDb(upmix, loudness.input, gainDb) : gainDb;
}

void printLoudness(const std::string& output, const LoudnessReport& loudness, double gainDb)
{
    printNote(output + ": loudness of the input " + formatted("%.1f", loudness.input) + " LUFS, of the output " +
              formatted("%.1f", loudness.output) + " LUFS with " + formatted("%+.2f", gainDb) + " dB");
}

void printShortfall(const std::string& output, const LoudnessReport& loudness)
{
    if (loudness.shortfall() > kAudibleShortfallLu)
        printNote(output + ": is " + formatted("%.1f LU", loudness.shortfall()) +
                  " softer than the input, because the limiter holds its peaks back");
}

Json jsonOf(const LoudnessReport& loudness)
{
    return {{"input", finiteOrNull(loudness.input)},
            {"output_without_gain", finiteOrNull(loudness.atUnityGain)},
            {"output", finiteOrNull(loudness.output)},
            {"shortfall", loudness.shortfall()}};
}

} // namespace tarn
