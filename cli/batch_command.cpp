// Lists the files of a batch and upmixes them.
// SPDX-License-Identifier: MIT
#include "cli/batch_command.h"

#include "cli/batch_inputs.h"
#include "cli/batch_report.h"
#include "cli/created_directories.h"
#include "cli/decibels.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/layout.h"
#include "cli/option_text.h"
#include "cli/progress.h"
#include "cli/remap_file.h"
#include "cli/resume.h"
#include "cli/temporary_file.h"
#include "cli/text.h"
#include "cli/upmix_passes.h"
#include "cli/worker_processes.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <utility>

namespace tarn
{

namespace
{

namespace fs = std::filesystem;

/// Lists the files to upmix.
Batch filesOf(const BatchOptions& batch, const UpmixOptions& each)
{
    const BatchInputs found = findBatchInputs({.inputs = batch.inputs,
                                               .directory = batch.directory,
                                               .recursive = batch.recursive,
                                               .kind = MediaKind::Audio,
                                               .ending = "-" + each.layout + "." + batch.format,
                                               .part = parsePart(batch.part)});
    Batch all{.unreadable = found.unreadable, .isResumed = batch.resume};
    for (const BatchInput& file : found.files) {
        UpmixOptions& options = all.files.emplace_back(BatchFile{.options = each, .refusal = file.refusal}).options;
        options.input = file.input;
        options.output = file.output;
        options.inBatch = true;
        checkOptions(options);
    }
    if (!each.quiet)
        for (const std::string& note : found.notes) printNote(note);
    return all;
}

fs::path directoryOf(const BatchFile& file)
{
    return fs::path(file.options.output).parent_path();
}

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

/// Shows the number and the name of the current file.
///
/// work  what happens to it, with a space at the end; can be empty
void showCurrentFile(const std::vector<BatchFile>& files, std::size_t index, const std::string& work)
{
    constexpr std::size_t kMaxCharacters = 50;
    const std::string name = lastCharacters(printable(files[index].options.input), kMaxCharacters);
    showStatus(work + std::to_string(index + 1) + " of " + std::to_string(files.size()) + ": " + name);
}

/// Names of some files, for messages.
std::vector<std::string> inputsOf(const std::vector<BatchFile>& files, const std::vector<std::size_t>& indices)
{
    std::vector<std::string> names;
    std::transform(indices.begin(), indices.end(), std::back_inserter(names),
                   [&](std::size_t i) { return files[i].options.input; });
    return names;
}

std::vector<std::string> outputsOf(const std::vector<BatchFile>& files)
{
    std::vector<std::string> names;
    std::transform(files.begin(), files.end(), std::back_inserter(names),
                   [](const BatchFile& file) { return file.options.output; });
    return names;
}

/// Indices of the files without an outcome.
std::vector<std::size_t> untried(const std::vector<BatchFile>& files)
{
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < files.size(); ++i)
        if (!files[i].outcome) indices.push_back(i);
    return indices;
}

/// Measures all files and sets their common level. Upmixing reports the files that fail. Throws Interrupted, or Failure
/// (EX_DATAERR) if the gain is too large.
void setAlbumLevel(std::vector<BatchFile>& files, unsigned jobs)
{
    std::vector<AlbumPart> parts;
    const auto work = [&files](std::size_t i) {
        if (!files[i].options.quiet) showCurrentFile(files, i, "measuring ");
        return measureForAlbum(files[i].options).json();
    };
    const auto done = [&parts](std::size_t /*index*/, const WorkerOutcome& outcome) {
        if (outcome.exitCode == EX_OK) parts.push_back(AlbumPart::from(outcome.result));
    };
    runInProcesses(inputsOf(files, untried(files)), jobs, work, done);

    const AlbumLevel level = albumLevelOf(parts);
    checkMatchingGain("--album", level.gainDb);
    for (BatchFile& file : files) file.options.album = level;
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

/// A file as the ledger describes it.
ResumeJob resumeJob(const UpmixOptions& options, const std::string& optionTexts)
{
    return {.input = options.input,
            .output = options.output,
            .options = optionTexts,
            .force = options.force,
            .skipExisting = options.skipExisting,
            .strict = options.strict};
}

/// Sets the outcomes of files that are done, and repeats the warnings about their losses.
void skipDone(std::vector<BatchFile>& files, const Resume& resume, const std::string& optionTexts)
{
    for (BatchFile& file : files) {
        if (!file.refusal.empty()) continue;
        ResumeDecision decision = resume.decide(resumeJob(file.options, optionTexts));
        file.refusal = decision.refusal;
        if (decision.report) {
            printKeptLoss(*decision.report);
            file.outcome = WorkerOutcome{.result = std::move(*decision.report)};
        } else if (decision.replaces) {
            file.options.force = true;
            file.options.skipExisting = false;
        }
    }
}

/// Upmixes the files without an outcome with this many processes. Throws Interrupted after all have stopped.
///
/// resume       null without --resume
/// optionTexts  for the ledger
void upmixAll(std::vector<BatchFile>& files, unsigned jobs, const Resume* resume, const std::string& optionTexts)
{
    const std::vector<std::size_t> pending = untried(files);
    const auto work = [&](std::size_t i) {
        const BatchFile& file = files[pending[i]];
        if (!file.refusal.empty()) throw Failure(EX_USAGE, file.refusal);
        if (!file.options.quiet) showCurrentFile(files, pending[i], "");
        UpmixOptions options = file.options;
        if (resume != nullptr) options.record = resume->recorder(resumeJob(options, optionTexts));
        return jsonOf(options, upmix(options));
    };
    const auto done = [&](std::size_t i, WorkerOutcome&& outcome) {
        BatchFile& file = files[pending[i]];
        if (outcome.crashed) removeStaleTemporaries(directoryOf(file));
        if (outcome.exitCode != EX_OK) printNote(outcome.error);
        file.outcome = std::move(outcome);
    };
    runInProcesses(inputsOf(files, pending), jobs, work, done);
}

} // namespace

int runBatch(const BatchOptions& options, const UpmixOptions& each)
{
    Batch batch = filesOf(options, each);
    printRemapNotes(each);
    printStereoNote(each);
    const bool isMeasured = options.album && hasGainPerFile(each);
    if (options.album && !isMeasured && !each.quiet)
        printNote(
            "--album: has no effect here: with the limiter and without --loudness-match, all files get the same gain "
            "anyway");
    std::optional<Resume> resume;
    const std::vector<std::string> outputs = outputsOf(batch.files);
    if (options.resume) resume.emplace(options.directory, outputs);
    CreatedDirectories created(options.resume || parsePart(options.part).count > 1);
    created.prepareFor(outputs);
    try {
        if (isMeasured) setAlbumLevel(batch.files, options.jobs);
        if (isMeasured && !batch.files.empty()) printAlbumLevel(batch.files.front().options);
        std::string optionTexts;
        if (resume && !batch.files.empty()) {
            optionTexts = optionText(batch.files.front().options);
            skipDone(batch.files, *resume, optionTexts);
        }
        upmixAll(batch.files, options.jobs, resume ? &*resume : nullptr, optionTexts);
    } catch (const Interrupted&) {
        printEarlyEnd(batch, "interrupted");
        if (each.json) printJson(jsonOf(batch), stdout);
        std::fflush(stdout);
        throw;
    }

    if (!each.quiet) printSummary(batch, options.directory);
    if (!batch.isFinished()) printEarlyEnd(batch, "stopped, because no output can be written");
    if (each.json) printJson(jsonOf(batch), stdout);
    return batch.exitCode();
}

} // namespace tarn
