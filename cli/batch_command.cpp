#include "cli/batch_command.h"

#include "cli/failure.h"
#include "cli/interrupt.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <thread>

namespace tarn
{

namespace
{

/// What became of a file.
struct Outcome
{
    UpmixOptions options;
    std::optional<UpmixReport> report;
    std::string error;
    int exitCode = EX_OK;
};

/// Refuses names that would meet, before anything is written.
void checkNames(const std::vector<Outcome>& files)
{
    std::map<std::string, std::string> inputOf;
    for (const Outcome& file : files) {
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
        const auto isOutput = [&missing, &name = output](const Outcome& file) {
            return std::filesystem::equivalent(name, file.options.input, missing);
        };
        if (std::any_of(files.begin(), files.end(), isOutput))
            throw Failure(EX_USAGE, output + ": would be the output for " + input +
                                        " and is an input itself; choose another --output-dir");
    }
}

void work(Outcome& file)
{
    try {
        file.report = upmix(file.options);
    } catch (const Failure& failure) {
        file.error = failure.what();
        file.exitCode = failure.exitCode();
    } catch (const std::exception& error) {
        file.error = file.options.input + ": internal error: " + error.what();
        file.exitCode = EX_SOFTWARE;
    }
    if (file.exitCode != EX_OK) printNote(file.error);
}

/// Works on the files in their order, so many at a time. Throws Interrupted when all have stopped.
void workOnAll(std::vector<Outcome>& files, unsigned jobs)
{
    // Its first engine fills the library's tables, which must be done before other threads make theirs.
    const zrk_tarn::UpmixStream first{zrk_tarn::StreamConfiguration{}};
    std::atomic<std::size_t> next = 0;
    const auto workUntilDone = [&] {
        try {
            for (std::size_t i = next++; i < files.size(); i = next++) {
                throwIfInterrupted();
                work(files[i]);
            }
        } catch (const Interrupted&) {
            // The others see the same signal, and so does the end of all.
            return;
        }
    };
    std::vector<std::jthread> others;
    for (std::size_t job = 1; job < std::min<std::size_t>(jobs, files.size()); ++job)
        others.emplace_back(workUntilDone);
    workUntilDone();
    others.clear();
    throwIfInterrupted();
}

void printSummary(const std::vector<Outcome>& files, const std::string& directory, std::size_t failed)
{
    std::string line = std::to_string(files.size() - failed) + " of " + std::to_string(files.size()) +
                       " files upmixed into " + directory;
    if (failed > 0) line += "; failed:";
    for (const Outcome& file : files)
        if (file.exitCode != EX_OK) line += " " + file.options.input;
    printNote(line);
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
    std::vector<Outcome> files;
    for (const std::string& input : batch.inputs) {
        Outcome& file = files.emplace_back(Outcome{.options = each, .report = {}, .error = {}, .exitCode = EX_OK});
        file.options.input = input;
        file.options.output = batchOutput(batch, each.layout, input);
        file.options.noBar = batch.jobs > 1;
    }
    checkNames(files);
    for (const Outcome& file : files) checkOptions(file.options);
    std::error_code error;
    std::filesystem::create_directories(batch.directory, error);
    if (error)
        throw Failure(EX_CANTCREAT, batch.directory + ": the directory cannot be created: " + error.message() +
                                        "; choose another --output-dir");

    workOnAll(files, batch.jobs);

    std::size_t failed = 0;
    int exitCode = EX_OK;
    Json reports = Json::array();
    for (const Outcome& file : files) {
        if (file.exitCode == EX_OK) {
            reports.push_back(jsonOf(file.options, *file.report));
            continue;
        }
        ++failed;
        if (exitCode == EX_OK) exitCode = file.exitCode;
        reports.push_back({{"input", file.options.input}, {"error", file.error}, {"exit_code", file.exitCode}});
    }
    if (!each.quiet) printSummary(files, batch.directory, failed);
    if (each.json) printJson({{"files", reports}, {"failed", failed}}, stdout);
    return exitCode;
}

} // namespace tarn
