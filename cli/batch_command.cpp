#include "cli/batch_command.h"

#include "cli/batch_names.h"
#include "cli/failure.h"
#include "cli/progress.h"
#include "cli/temporary_file.h"
#include "cli/worker_processes.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

namespace tarn
{

namespace
{

/// A file of the batch, and what became of it.
struct BatchFile
{
    UpmixOptions options;
    WorkerOutcome outcome;
};

/// The files that are to be upmixed.
std::vector<BatchFile> filesOf(const BatchOptions& batch, const UpmixOptions& each)
{
    const std::vector<BatchInput> inputs = findInputs(batch.inputs, batch.recursive, batch.directory);
    const std::vector<std::string> outputs =
        nameOutputs(inputs, batch.directory, "-" + each.layout + "." + batch.format);
    std::vector<BatchFile> files;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        UpmixOptions& options = files.emplace_back(BatchFile{.options = each, .outcome = {}}).options;
        options.input = inputs[i].path;
        options.output = outputs[i];
        options.noBar = batch.jobs > 1;
        checkOptions(options);
    }
    return files;
}

std::filesystem::path directoryOf(const BatchFile& file)
{
    return std::filesystem::path(file.options.output).parent_path();
}

/// Creates the directories of the outputs, and removes what killed runs have left in them.
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

/// Works on the files, so many at a time. Throws Interrupted when all have stopped.
void workOnAll(std::vector<BatchFile>& files, unsigned jobs)
{
    std::vector<std::string> names;
    std::transform(files.begin(), files.end(), std::back_inserter(names),
                   [](const BatchFile& file) { return file.options.input; });
    const auto work = [&files](std::size_t i) { return jsonOf(files[i].options, upmix(files[i].options)); };
    const auto done = [&files](std::size_t i, WorkerOutcome&& outcome) {
        if (outcome.crashed) {
            wipeProgress();
            removeStaleTemporaries(directoryOf(files[i]));
        }
        if (outcome.exitCode != EX_OK) printNote(outcome.error);
        files[i].outcome = std::move(outcome);
    };
    runInProcesses(names, jobs, work, done);
}

bool isSkipped(const BatchFile& file)
{
    return file.outcome.exitCode == EX_OK && file.outcome.result.contains("skipped");
}

bool isFailed(const BatchFile& file)
{
    return file.outcome.exitCode != EX_OK;
}

/// Whether it was upmixed without a part of the input that is missing or damaged.
bool isIncomplete(const BatchFile& file)
{
    return !isFailed(file) && file.outcome.result.value("exit_code", EX_OK) != EX_OK;
}

void printSummary(const std::vector<BatchFile>& files, const std::string& directory)
{
    const auto skipped = static_cast<std::size_t>(std::count_if(files.begin(), files.end(), isSkipped));
    const auto failed = static_cast<std::size_t>(std::count_if(files.begin(), files.end(), isFailed));
    std::string line = std::to_string(files.size() - skipped - failed) + " of " + std::to_string(files.size()) +
                       " files upmixed into " + directory;
    const auto incomplete = std::count_if(files.begin(), files.end(), isIncomplete);
    if (incomplete > 0) line += ", " + std::to_string(incomplete) + " of them incomplete";
    if (skipped > 0) line += ", " + std::to_string(skipped) + " skipped";
    if (failed > 0) line += "; failed:";
    for (const BatchFile& file : files)
        if (isFailed(file)) line += " " + file.options.input;
    printNote(line);
}

/// The report of all files as --json prints it.
Json jsonOf(const std::vector<BatchFile>& files)
{
    Json reports = Json::array();
    for (const BatchFile& file : files) {
        const WorkerOutcome& outcome = file.outcome;
        reports.push_back(
            isFailed(file)
                ? Json{{"input", file.options.input}, {"error", outcome.error}, {"exit_code", outcome.exitCode}}
                : outcome.result);
    }
    return {{"files", reports},
            {"failed", std::count_if(files.begin(), files.end(), isFailed)},
            {"skipped", std::count_if(files.begin(), files.end(), isSkipped)}};
}

} // namespace

int runBatch(const BatchOptions& batch, const UpmixOptions& each)
{
    std::vector<BatchFile> files = filesOf(batch, each);
    prepareDirectories(files);
    workOnAll(files, batch.jobs);

    if (!each.quiet) printSummary(files, batch.directory);
    if (each.json) printJson(jsonOf(files), stdout);
    const auto firstFailed = std::find_if(files.begin(), files.end(), isFailed);
    if (firstFailed != files.end()) return firstFailed->outcome.exitCode;
    return std::any_of(files.begin(), files.end(), isIncomplete) ? kExitIncomplete : EX_OK;
}

} // namespace tarn
