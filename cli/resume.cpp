// Compares the ledger with the files of a batch.
// SPDX-License-Identifier: MIT
#include "cli/resume.h"

#include "cli/batch_inputs.h"
#include "cli/progress.h"

#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace tarn
{

namespace
{

namespace fs = std::filesystem;

std::string fullPath(const std::string& path)
{
    std::error_code ignored;
    const fs::path full = fs::absolute(path, ignored);
    return ignored ? path : full.lexically_normal().string();
}

bool exists(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

/// Whether the entry is about another file that still exists. A file that was moved is the same file.
bool isOfOtherFile(const LedgerEntry& entry, const std::string& input)
{
    if (entry.input == fullPath(input)) return false;
    std::error_code ignored;
    return fs::exists(entry.input, ignored) && !fs::equivalent(entry.input, input, ignored);
}

/// The report of an entry; empty if it is not an object.
Json resultOf(const LedgerEntry& entry)
{
    Json result = Json::parse(entry.result, nullptr, false);
    return result.is_object() ? result : Json::object();
}

bool isDone(const LedgerEntry& entry, const ResumeJob& job)
{
    if (entry.options != job.options || (job.strict && resultOf(entry).contains("loss"))) return false;
    return stateOf(job.input) == entry.inputState && stateOf(job.output) == entry.outputState;
}

} // namespace

ResumeDecision Resume::decide(const ResumeJob& job) const
{
    const std::string name = ledger.relative(job.output);
    const LedgerEntry* const entry = ledger.find(name);
    if (entry != nullptr && !job.force && isOfOtherFile(*entry, job.input))
        return {.refusal = sharedOutputRefusal(job.input, entry->input, job.output)};
    if (entry != nullptr && isDone(*entry, job)) {
        Json report = {{"input", job.input}, {"output", job.output}, {"skipped", true}};
        report.update(resultOf(*entry));
        return {.report = std::move(report)};
    }
    if (!exists(job.output)) return {};
    const auto state = stateOf(job.output);
    if (state && ledger.lists(name, *state)) return {.replaces = true};
    if (job.force || job.skipExisting) return {};
    return {.refusal = job.output + ": exists already, and " + ledger.path().string() +
                       (entry == nullptr ? " does not list it" : " lists it with another size or time") +
                       "; add --skip-existing to keep it if it is complete, or --force to replace it"};
}

Recorder Resume::recorder(const ResumeJob& job) const
{
    // If the input changes during the work, the ledger has its old state, and the next run upmixes it again.
    const std::optional<FileState> inputState = stateOf(job.input);
    if (!inputState) return {};
    return [this, job, state = *inputState](const FileState& output, const Json& result) {
        ledger.append({.output = ledger.relative(job.output),
                       .outputState = output,
                       .input = fullPath(job.input),
                       .inputState = state,
                       .options = job.options,
                       .result = result.dump(-1, ' ', true, Json::error_handler_t::replace)});
    };
}

void printKeptLoss(const Json& report)
{
    if (const auto loss = report.find("loss"); loss != report.end())
        printNote(report.value("input", "") + ": " + loss->value("message", "is damaged") + "; the upmix is kept");
}

} // namespace tarn
