#include "cli/batch_command.h"

#include "cli/failure.h"
#include "cli/progress.h"
#include "cli/temporary_file.h"
#include "cli/worker_processes.h"

#include <algorithm>
#include <filesystem>
#include <map>
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

/// Refuses names that would meet, before anything is written.
void checkNames(const std::vector<BatchFile>& files)
{
    std::map<std::string, std::string> inputOf;
    for (const BatchFile& file : files) {
        const auto& [input, output] = std::pair(file.options.input, file.options.output);
        if (input.empty()) throw Failure(EX_USAGE, "an empty file name; name files");
        if (input == "-") throw Failure(EX_USAGE, "-: a stream has no name for an output in --output-dir; name files");
        const auto [other, isNew] = inputOf.emplace(output, input);
        if (!isNew)
            throw Failure(EX_USAGE, input + ": would become " + output + ", as " + other->second +
                                        " would; rename one of them, or upmix it by itself");
    }
    for (const auto& [output, input] : inputOf) {
        std::error_code missing;
        const auto isOutput = [&missing, &name = output](const BatchFile& file) {
            return std::filesystem::equivalent(name, file.options.input, missing);
        };
        if (std::any_of(files.begin(), files.end(), isOutput))
            throw Failure(EX_USAGE, output + ": would be the output for " + input +
                                        " and is an input itself; choose another --output-dir");
    }
}

/// Works on the files, so many at a time. Throws Interrupted when all have stopped.
void workOnAll(std::vector<BatchFile>& files, unsigned jobs)
{
    std::vector<std::string> names;
    for (const BatchFile& file : files) names.push_back(file.options.input);
    const auto work = [&files](std::size_t i) { return jsonOf(files[i].options, upmix(files[i].options)); };
    const auto done = [&files](std::size_t i, WorkerOutcome&& outcome) {
        if (outcome.crashed) {
            wipeProgress();
            removeStaleTemporaries(std::filesystem::path(files[i].options.output).parent_path());
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

void printSummary(const std::vector<BatchFile>& files, const std::string& directory)
{
    const auto skipped = static_cast<std::size_t>(std::count_if(files.begin(), files.end(), isSkipped));
    const auto failed = static_cast<std::size_t>(std::count_if(files.begin(), files.end(), isFailed));
    std::string line = std::to_string(files.size() - skipped - failed) + " of " + std::to_string(files.size()) +
                       " files upmixed into " + directory;
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

std::string batchOutput(const BatchOptions& batch, const std::string& layout, const std::string& input)
{
    std::string name = std::filesystem::path(input).stem().string();
    name += "-" + layout + "." + batch.format;
    return (std::filesystem::path(batch.directory) / name).string();
}

int runBatch(const BatchOptions& batch, const UpmixOptions& each)
{
    std::vector<BatchFile> files;
    for (const std::string& input : batch.inputs) {
        BatchFile& file = files.emplace_back(BatchFile{.options = each, .outcome = {}});
        file.options.input = input;
        file.options.output = batchOutput(batch, each.layout, input);
        file.options.noBar = batch.jobs > 1;
    }
    checkNames(files);
    for (const BatchFile& file : files) checkOptions(file.options);
    std::error_code error;
    std::filesystem::create_directories(batch.directory, error);
    if (error)
        throw Failure(EX_CANTCREAT, batch.directory + ": the directory cannot be created: " + error.message() +
                                        "; choose another --output-dir");
    removeStaleTemporariesOnce(batch.directory);

    workOnAll(files, batch.jobs);

    if (!each.quiet) printSummary(files, batch.directory);
    if (each.json) printJson(jsonOf(files), stdout);
    const auto firstFailed = std::find_if(files.begin(), files.end(), isFailed);
    return firstFailed == files.end() ? EX_OK : firstFailed->outcome.exitCode;
}

} // namespace tarn
