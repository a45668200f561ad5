// The passes of one upmix: with and without headroom, and with matched loudness.
// SPDX-License-Identifier: MIT
#include "cli/upmix_passes.h"

#include "cli/decibels.h"
#include "cli/failure.h"
#include "cli/gain_stage.h"
#include "cli/interrupt.h"
#include "cli/loudness.h"
#include "cli/loudness_match.h"
#include "cli/progress.h"
#include "cli/read_ahead.h"
#include "cli/row_store.h"
#include "cli/text.h"
#include "stream/gain.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <span>
#include <system_error>
#include <vector>

namespace tarn
{

namespace
{

int headroomBitsOf(const UpmixJob& job)
{
    return headroomBitsOf(job.options, job.layout, job.settings.room, job.source);
}

bool showsProgress(const UpmixOptions& options)
{
    return !options.quiet && !options.inBatch;
}

/// Upmixes the whole source.
///
/// headroomBits  of the samples that the upmixer gets
/// meter         measures the source; can be null
void processAll(const UpmixJob& job, Upmixer& upmixer, int headroomBits, LoudnessMeter* meter)
{
    const int addedBits = headroomBits - job.source.headroomBits();
    Progress progress("upmixing", job.source.expectedFrames(), job.source.format().sampleRate,
                      showsProgress(job.options));
    ReadAhead<std::int32_t> source([&job](std::int32_t* to, std::size_t frames) { return job.source.read(to, frames); },
                                   job.source.isSlow());
    for (std::span<std::int32_t> stereo = source.next(); !stereo.empty(); stereo = source.next()) {
        throwIfInterrupted();
        const std::size_t frames = stereo.size() / 2;
        addHeadroom(stereo, addedBits);
        if (job.inspect) job.inspect(stereo.data(), frames, headroomBits);
        if (meter != nullptr) meter->push(stereo.data(), frames, headroomBits);
        if (job.wraps != nullptr) job.wraps->push(stereo.data(), frames);
        upmixer.push(stereo.data(), frames);
        progress.advance(frames);
    }
    if (job.wraps != nullptr) job.wraps->finish();
    upmixer.finish();
    job.report.frames = upmixer.frames();
}

/// The format of that stream. A remapped layout wraps at the full scale of its width.
StreamFormat formatAtUnityGain(const UpmixJob& job)
{
    return {.sampleRate = job.format.sampleRate, .bits = job.layout.remapped ? job.format.bits : 32};
}

OutputLevel levelOf(const UpmixJob& job, double gainDb)
{
    return {.gainDb = gainDb, .limiter = job.settings.room.limiter, .headroomBits = headroomBitsOf(job)};
}

void report(const UpmixJob& job, const PeakCounts& counts)
{
    job.report.clipped = counts.clipped;
    job.report.limitedBlocks = counts.limitedBlocks;
    job.report.limiterGain = counts.limiterGain;
}

/// Upmixes with gain and limiter of the stream.
void upmixDirectly(AudioSink& output, const UpmixJob& job)
{
    Upmixer upmixer(job.layout, job.format, job.settings, !job.options.noAlign, output);
    processAll(job, upmixer, 0, nullptr);
    const zrk_tarn::StreamMeters meters = upmixer.meters();
    report(job, {.clipped = meters.saturated,
                 .limitedBlocks = meters.limitedBlocks,
                 .limiterGain = static_cast<double>(meters.smallestLimiterGain)});
}

/// Upmixes with headroom in one pass.
void upmixWithHeadroom(AudioSink& output, const UpmixJob& job)
{
    const int headroomBits = headroomBitsOf(job);
    GainStage stage(job.layout.slots, job.format, levelOf(job, job.settings.room.gainDb), output);
    Upmixer upmixer(job.layout, formatAtUnityGain(job), atUnityGain(job.settings), !job.options.noAlign, stage);
    processAll(job, upmixer, headroomBits, nullptr);
    stage.flush();
    report(job, stage.counts());
}

/// The folder of the temporary file: that of the output, or that of other temporary files.
std::filesystem::path storeFolder(const UpmixOptions& options)
{
    namespace fs = std::filesystem;
    std::error_code ignored;
    if (!isStream(options.output)) return fs::path(options.output).parent_path();
    const fs::path folder = fs::temp_directory_path(ignored);
    return ignored ? fs::path("/tmp") : folder;
}

/// Runs the engine at unity gain.
///
/// next  gets the upmix with headroom; can be null
/// Returns the loudness of the source as if it was not scaled down, and that of the upmix.
LoudnessReport upmixAtUnityGain(AudioSink* next, const UpmixJob& job)
{
    const int headroomBits = headroomBitsOf(job);
    LoudnessMeter input(job.format.sampleRate);
    LoudnessSink upmixed(job.layout, job.format.sampleRate, next, headroomBits);
    Upmixer upmixer(job.layout, formatAtUnityGain(job), atUnityGain(job.settings), !job.options.noAlign, upmixed);
    processAll(job, upmixer, headroomBits, &input);
    return {.input = input.integrated() - decibels(job.source.scale()),
            .atUnityGain = upmixed.meter().integrated(),
            .output = 0.0};
}

/// Upmixes once into a temporary file, which then gets the gain that matches the loudness.
void upmixMatched(AudioSink& output, const UpmixJob& job)
{
    RowStore store(storeFolder(job.options), job.layout.slots);
    LoudnessReport& loudness = job.report.loudness.emplace(upmixAtUnityGain(&store, job));
    const StoredUpmix stored{.name = job.options.inputName(),
                             .rows = store,
                             .layout = job.layout,
                             .format = job.format,
                             .level = levelOf(job, 0.0),
                             .isQuiet = job.options.quiet,
                             .showsProgress = showsProgress(job.options)};
    job.report.room.gainDb = matchingGainDb(stored, loudness);
    const ReplayedUpmix written = replay(stored, "writing", job.report.room.gainDb, &output);
    loudness.output = written.loudness;
    report(job, written.peaks);
}

/// Upmixes in one pass with the gain of all files of a run.
void upmixAtAlbumGain(AudioSink& output, const UpmixJob& job)
{
    const double gainDb = job.options.album->gainDb - decibels(job.source.scale());
    LoudnessSink loudness(job.layout, job.format.sampleRate, &output);
    GainStage stage(job.layout.slots, job.format, levelOf(job, gainDb), loudness);
    job.report.loudness = upmixAtUnityGain(&stage, job);
    stage.flush();
    report(job, stage.counts());
    job.report.loudness->output = loudness.meter().integrated();
    job.report.room.gainDb = gainDb;
}

} // namespace

int headroomBitsOf(const UpmixOptions& options, const Layout& layout, const zrk_tarn::RoomSettings& room,
                   const AudioSource& source)
{
    if (layout.remapped || options.bypass || keepsStereo(layout, room)) return 0;
    return options.loudnessMatch || (room.limiter && source.canExceedFullScale()) ? kHeadroomBits : 0;
}

bool hasGainPerFile(const UpmixOptions& options)
{
    const Layout& layout = layoutNamed(options.layout);
    const zrk_tarn::RoomSettings room = roomSettingsOf(options.room, layout);
    return options.loudnessMatch || options.bypass || !room.limiter || keepsStereo(layout, room);
}

LoudnessReport measureLoudness(const UpmixJob& job)
{
    LoudnessReport loudness = upmixAtUnityGain(nullptr, job);
    loudness.atUnityGain -= decibels(job.source.scale());
    return loudness;
}

void upmixInto(AudioSink& output, const UpmixJob& job)
{
    if (job.options.loudnessMatch && job.options.album) {
        upmixAtAlbumGain(output, job);
    } else if (job.options.loudnessMatch) {
        upmixMatched(output, job);
    } else if (headroomBitsOf(job) > 0) {
        upmixWithHeadroom(output, job);
    } else {
        upmixDirectly(output, job);
    }
}

} // namespace tarn
