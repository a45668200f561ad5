// Runs a batch, prints its summary and its JSON report.
// SPDX-License-Identifier: MIT
#include "cli/batch_command.h"

#include "cli/batch_names.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/temporary_file.h"
#include "cli/text.h"
#include "cli/worker_processes.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

namespace tarn
{

namespace
{

/// A file of the batch and its outcome.
struct BatchFile
{
    UpmixOptions options;
    std::optional<WorkerOutcome> outcome; ///< none if the file was not tried or not finished
};

/// Lists the files to upmix.
std::vector<BatchFile> filesOf(const BatchOptions& batch, const UpmixOptions& each)
{
    const FoundInputs found = findInputs(batch.inputs, batch.recursive, batch.directory);
    const std::string unreadable = found.unreadable.note();
    if (!unreadable.empty() && !each.quiet) printNote(unreadable);
    const std::vector<std::string> outputs =
        nameOutputs(found.files, batch.directory, "-" + each.layout + "." + batch.format);
    std::vector<BatchFile> files;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        UpmixOptions& options = files.emplace_back(BatchFile{.options = each, .outcome = {}}).options;
        options.input = found.files[i].path;
        options.output = outputs[i];
        options.inBatch = true;
        checkOptions(options);
    }
    return files;
}

std::filesystem::path directoryOf(const BatchFile& file)
{
    return std::filesystem::path(file.options.output).parent_path();
}

/// Creates the directories of the outputs, and removes temporary files of killed runs.
void prepareDirectories(const std::vector<BatchFile>& files)
{
    std::set<std::filesystem::path> directories;
    std::transform(files.begin(), files.end(), std::inserter(directories, directories.end()), directoryOf);
    for (const std::filesystem::path& directory : directories) {
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        if (error)
            throw Failure(EX_CANTCREAT, directory.string() + ": the directory cannot be created: " + error.message() +
                                            "; choose another --output-dir");
        removeStaleTemporariesOnce(directory);
    }
}

/// Shows the number and the name of the current file.
void showCurrentFile(const std::vector<BatchFile>& files, std::size_t index)
{
    constexpr std::size_t kMaxCharacters = 50;
    const std::string name = lastCharacters(printable(files[index].options.input), kMaxCharacters);
    showStatus(std::to_string(index + 1) + " of " + std::to_string(files.size()) + ": " + name);
}

/// Upmixes the files with this many processes. Throws Interrupted after all have stopped.
void upmixAll(std::vector<BatchFile>& files, unsigned jobs)
{
    std::vector<std::string> names;
    std::transform(files.begin(), files.end(), std::back_inserter(names),
                   [](const BatchFile& file) { return file.options.input; });
    const auto work = [&files](std::size_t i) {
        const UpmixOptions& options = files[i].options;
        if (!options.quiet) showCurrentFile(files, i);
        return jsonOf(options, upmix(options));
    };
    const auto done = [&files](std::size_t i, WorkerOutcome&& outcome) {
        if (outcome.crashed) removeStaleTemporaries(directoryOf(files[i]));
        if (outcome.exitCode != EX_OK) printNote(outcome.error);
        files[i].outcome = std::move(outcome);
    };
    runInProcesses(names, jobs, work, done);
}

bool isUntried(const BatchFile& file)
{
    return !file.outcome;
}

bool isFailed(const BatchFile& file)
{
    return file.outcome && file.outcome->exitCode != EX_OK;
}

/// Whether the output is complete, from this run or an earlier one.
bool isDone(const BatchFile& file)
{
    return file.outcome && file.outcome->exitCode == EX_OK;
}

bool isSkipped(const BatchFile& file)
{
    return isDone(file) && file.outcome->result.contains("skipped");
}

/// Whether a part of the input was missing or damaged.
bool hasLoss(const BatchFile& file)
{
    return isDone(file) && file.outcome->result.contains("loss");
}

/// Whether the loss is long enough for the exit code.
bool isIncomplete(const BatchFile& file)
{
    return isDone(file) && file.outcome->result.value("exit_code", EX_OK) != EX_OK;
}

std::size_t countOf(const std::vector<BatchFile>& files, bool (*predicate)(const BatchFile&))
{
    return static_cast<std::size_t>(std::count_if(files.begin(), files.end(), predicate));
}

/// "1 file", "2 files".
std::string filesText(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " file" : " files");
}

/// The error message of a file without names and advice.
std::string reasonOf(const BatchFile& file)
{
    std::string reason = file.outcome->error;
    const std::string input = file.options.input + ": ";
    const std::string output = file.options.output + ": ";
    if (reason.starts_with(input)) reason.erase(0, input.size());
    if (reason.starts_with(output)) reason.replace(0, output.size(), "the output: ");
    return reason.substr(0, reason.find("; "));
}

void printSummary(const std::vector<BatchFile>& files, const std::string& directory)
{
    const std::size_t skipped = countOf(files, isSkipped);
    printNote(std::to_string(countOf(files, isDone) - skipped) + " of " + filesText(files.size()) + " upmixed into " +
              shellQuoted(directory));
    if (const std::size_t losses = countOf(files, hasLoss); losses > 0)
        printNote(std::to_string(losses) + " of these with losses, listed above");
    if (skipped > 0) printNote(filesText(skipped) + " skipped, because the output is complete");
    const std::size_t failed = countOf(files, isFailed);
    if (failed == 0) return;
    printNote(filesText(failed) + " failed:");
    for (const BatchFile& file : files)
        if (isFailed(file)) printNote("  " + shellQuoted(file.options.input) + ": " + reasonOf(file));
}

/// Notes that the run ended early, and how to continue.
void printEarlyEnd(const std::vector<BatchFile>& files, const std::string& reason)
{
    const auto first = std::find_if_not(files.begin(), files.end(), isDone);
    const std::string missing =
        first == files.end() ? "" : "; " + shellQuoted(first->options.input) + " is the first that is missing";
    printNote(reason + ": " + std::to_string(countOf(files, isDone)) + " of " + filesText(files.size()) + " done" +
              missing + "; run again with --skip-existing");
}

/// The report that --json prints.
Json jsonOf(const std::vector<BatchFile>& files)
{
    Json reports = Json::array();
    for (const BatchFile& file : files) {
        if (isDone(file)) {
            reports.push_back(file.outcome->result);
        } else if (isFailed(file)) {
            reports.push_back(
                {{"input", file.options.input}, {"error", file.outcome->error}, {"exit_code", file.outcome->exitCode}});
        } else {
            reports.push_back({{"input", file.options.input}, {"not_tried", true}});
        }
    }
    return {{"files", reports},
            {"failed", countOf(files, isFailed)},
            {"skipped", countOf(files, isSkipped)},
            {"not_tried", countOf(files, isUntried)}};
}

} // namespace

int runBatch(const BatchOptions& batch, const UpmixOptions& each)
{
    std::vector<BatchFile> files = filesOf(batch, each);
    prepareDirectories(files);
    try {
        upmixAll(files, batch.jobs);
    } catch (const Interrupted&) {
        printEarlyEnd(files, "interrupted");
        throw;
    }

    if (!each.quiet) printSummary(files, batch.directory);
    if (countOf(files, isUntried) > 0) printEarlyEnd(files, "stopped, because no output can be written");
    if (each.json) printJson(jsonOf(files), stdout);
    const auto firstFailed = std::find_if(files.begin(), files.end(), isFailed);
    if (firstFailed != files.end()) return firstFailed->outcome->exitCode;
    return countOf(files, isIncomplete) > 0 ? kExitIncomplete : EX_OK;
}

} // namespace tarn
