// Finds the files of a batch, skips those that are done and upmixes the others.
// SPDX-License-Identifier: MIT
#include "cli/batch_run.h"

#include "cli/batch_inputs.h"
#include "cli/created_directories.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/temporary_file.h"
#include "cli/text.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <optional>
#include <utility>

namespace tarn
{

namespace
{

std::vector<std::string> outputsOf(const Batch& batch)
{
    std::vector<std::string> names;
    std::transform(batch.files.begin(), batch.files.end(), std::back_inserter(names),
                   [](const BatchFile& file) { return file.output; });
    return names;
}

/// Shows the number and the name of the current file.
void showCurrentFile(const Batch& batch, std::size_t index, const std::string& label)
{
    constexpr std::size_t kMaxCharacters = 50;
    const std::string name = lastCharacters(printable(batch.files[index].input), kMaxCharacters);
    showStatus(label + std::to_string(index + 1) + " of " + std::to_string(batch.files.size()) + ": " + name);
}

/// A file as the ledger describes it.
ResumeJob resumeJob(const BatchFile& file, const BatchWork& work, const std::string& optionText)
{
    return {.input = file.input,
            .output = file.output,
            .options = optionText,
            .force = work.force,
            .skipExisting = work.skipExisting,
            .strict = work.strict};
}

/// Sets the outcomes of files that are done, and repeats the warnings about their losses.
void skipDone(Batch& batch, const Resume& resume, const BatchWork& work, const std::string& optionText)
{
    for (BatchFile& file : batch.files) {
        if (!file.refusal.empty()) continue;
        ResumeDecision decision = resume.decide(resumeJob(file, work, optionText));
        file.refusal = decision.refusal;
        file.isReplaced = decision.replaces;
        if (!decision.report) continue;
        printKeptLoss(*decision.report);
        file.outcome = WorkerOutcome{.result = std::move(*decision.report)};
    }
}

/// Upmixes the files without an outcome.
///
/// resume  null without --resume
void upmixAll(Batch& batch, unsigned jobs, const BatchWork& work, const Resume* resume, const std::string& optionText)
{
    const auto upmix = [&](const BatchFile& file) {
        if (!file.refusal.empty()) throw Failure(EX_USAGE, file.refusal);
        return work.upmix(file, resume != nullptr ? resume->recorder(resumeJob(file, work, optionText)) : Recorder{});
    };
    const auto done = [](BatchFile& file, WorkerOutcome&& outcome) {
        if (outcome.crashed) removeStaleTemporaries(std::filesystem::path(file.output).parent_path());
        if (outcome.exitCode != EX_OK) printNote(outcome.error);
        file.outcome = std::move(outcome);
    };
    runPending(batch, "", jobs, work.quiet, upmix, done);
}

} // namespace

Batch findBatch(const BatchOptions& options, MediaKind kind, const std::string& layout, bool quiet)
{
    BatchInputs found = findBatchInputs({.inputs = options.inputs,
                                         .directory = options.directory,
                                         .recursive = options.recursive,
                                         .kind = kind,
                                         .ending = "-" + layout + "." + options.format,
                                         .part = parsePart(options.part)});
    Batch batch{.unreadable = std::move(found.unreadable),
                .isResumed = options.resume,
                .noun = kind == MediaKind::Films ? "film" : "file"};
    for (const BatchInput& file : found.files)
        batch.files.push_back({.input = file.input, .output = file.output, .refusal = file.refusal});
    if (!quiet)
        for (const std::string& note : found.notes) printNote(note);
    return batch;
}

int runFiles(Batch& batch, const BatchOptions& options, const BatchWork& work)
{
    std::optional<Resume> resume;
    const std::vector<std::string> outputs = outputsOf(batch);
    if (options.resume) resume.emplace(options.directory, outputs);
    CreatedDirectories created(options.resume || parsePart(options.part).count > 1);
    created.prepareFor(outputs);
    try {
        if (work.prepare) work.prepare(batch);
        const std::string optionText = resume && !batch.files.empty() ? work.optionText() : "";
        if (resume) skipDone(batch, *resume, work, optionText);
        upmixAll(batch, options.jobs, work, resume ? &*resume : nullptr, optionText);
    } catch (const Interrupted&) {
        printEarlyEnd(batch, "interrupted");
        work.report(batch);
        throw;
    }

    if (!work.quiet) printSummary(batch, options.directory);
    if (!batch.isFinished()) printEarlyEnd(batch, "stopped, because no output can be written");
    work.report(batch);
    return batch.exitCode();
}

void runPending(Batch& batch, const std::string& label, unsigned jobs, bool quiet,
                const std::function<Json(const BatchFile&)>& work,
                const std::function<void(BatchFile&, WorkerOutcome&&)>& done)
{
    std::vector<std::size_t> pending;
    std::vector<std::string> names;
    for (std::size_t i = 0; i < batch.files.size(); ++i) {
        if (batch.files[i].outcome) continue;
        pending.push_back(i);
        names.push_back(batch.files[i].input);
    }
    const auto workOn = [&](std::size_t i) {
        const BatchFile& file = batch.files[pending[i]];
        if (!quiet && file.refusal.empty()) showCurrentFile(batch, pending[i], label);
        return work(file);
    };
    const auto doneWith = [&](std::size_t i, WorkerOutcome&& outcome) {
        done(batch.files[pending[i]], std::move(outcome));
    };
    runInProcesses(names, jobs, workOn, doneWith);
}

} // namespace tarn
