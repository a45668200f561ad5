// Upmixes the audio files of a batch.
// SPDX-License-Identifier: MIT
#include "cli/batch_command.h"

#include "cli/decibels.h"
#include "cli/layout.h"
#include "cli/loudness_match.h"
#include "cli/option_text.h"
#include "cli/progress.h"
#include "cli/remap_file.h"
#include "cli/text.h"
#include "cli/upmix_command.h"
#include "cli/upmix_passes.h"

#include <cstdio>
#include <string>
#include <vector>

namespace tarn
{

namespace
{

/// Prints the notes about the remap file, which all files share.
void printRemapNotes(const UpmixOptions& each)
{
    if (each.quiet || each.bypass || !layoutNamed(each.layout).remapped) return;
    for (const std::string& note : readRemapFile(each.remapFile).notes) printNote(note);
}

/// Says so if the layout leaves the stereo of all files as it is.
void printStereoNote(const UpmixOptions& each)
{
    const Layout& layout = layoutNamed(each.layout);
    if (!each.quiet && !each.bypass && keepsStereo(layout, roomSettingsOf(each.room, layout)))
        printNote("--layout " + each.layout + ": " + kUnchangedStereo);
}

/// Measures all files and returns their common level. Upmixing reports the files that fail. Throws Interrupted, or
/// Failure (EX_DATAERR) if the gain is too large.
AlbumLevel measureAlbum(Batch& batch, unsigned jobs, const UpmixOptions& each)
{
    std::vector<AlbumPart> parts;
    const auto work = [&](const BatchFile& file) { return measureForAlbum(optionsOf(file, each)).json(); };
    const auto done = [&](const BatchFile& /*file*/, const WorkerOutcome& outcome) {
        if (outcome.exitCode == EX_OK) parts.push_back(AlbumPart::from(outcome.result));
    };
    runPending(batch, "measuring ", jobs, each.quiet, work, done);

    const AlbumLevel level = albumLevelOf(parts);
    checkMatchingGain("--album", level.gainDb);
    return level;
}

/// Prints the common level.
void printAlbumLevel(const UpmixOptions& options)
{
    if (options.quiet || !options.album) return;
    if (options.album->input)
        printNote(formatted("--album: a gain of %+.2f dB for all files", options.album->gainDb) +
                  formatted(", whose loudness is %.1f LUFS", *options.album->input));
    if (options.album->peak > 1.0)
        printNote("--album: the highest peak is " + formatted("%.2f dB", decibels(options.album->peak)) +
                  " above full scale: floating-point, lossy and converted files are scaled down by it");
}

} // namespace

int runBatch(const BatchOptions& options, bool album, const UpmixOptions& each)
{
    Batch batch = findBatch(options, MediaKind::Audio, each.layout, each.quiet);
    for (const BatchFile& file : batch.files) checkOptions(optionsOf(file, each));
    printRemapNotes(each);
    printStereoNote(each);
    const bool isMeasured = album && hasGainPerFile(each);
    if (album && !isMeasured && !each.quiet)
        printNote(
            "--album: has no effect here: with the limiter and without --loudness-match, all files get the same gain "
            "anyway");

    UpmixOptions leveled = each;
    const auto prepare = [&](Batch& all) {
        if (!isMeasured) return;
        leveled.album = measureAlbum(all, options.jobs, each);
        if (!all.files.empty()) printAlbumLevel(leveled);
    };
    const auto report = [&](const Batch& all) {
        if (each.json) printJson(jsonOf(all), stdout);
        std::fflush(stdout);
    };
    const auto upmixOne = [&](const BatchFile& file, const Recorder& recorder) {
        const UpmixOptions own = optionsOf(file, leveled, recorder);
        return jsonOf(own, upmix(own));
    };
    return runFiles(batch, options,
                    {.force = each.force,
                     .skipExisting = each.skipExisting,
                     .strict = each.strict,
                     .quiet = each.quiet,
                     .prepare = prepare,
                     .optionText = [&] { return optionText(leveled); },
                     .report = report,
                     .upmix = upmixOne});
}

} // namespace tarn
