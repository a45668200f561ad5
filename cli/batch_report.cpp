// Counts the outcomes of a batch.
// SPDX-License-Identifier: MIT
#include "cli/batch_report.h"

#include "cli/audio_source.h"
#include "cli/progress.h"
#include "cli/text.h"

#include <algorithm>
#include <cstddef>

namespace tarn
{

namespace
{

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

std::size_t countOf(const Batch& batch, bool (*predicate)(const BatchFile&))
{
    return static_cast<std::size_t>(std::count_if(batch.files.begin(), batch.files.end(), predicate));
}

/// "1 file", "2 films".
std::string filesText(const Batch& batch, std::size_t count)
{
    return std::to_string(count) + " " + batch.noun + (count == 1 ? "" : "s");
}

Json jsonOf(const BatchFile& file)
{
    if (isDone(file)) return file.outcome->result;
    if (isFailed(file))
        return {{"input", file.input}, {"error", file.outcome->error}, {"exit_code", file.outcome->exitCode}};
    return {{"input", file.input}, {"not_tried", true}};
}

} // namespace

int Batch::exitCode() const
{
    const auto firstFailed = std::find_if(files.begin(), files.end(), isFailed);
    if (firstFailed != files.end()) return firstFailed->outcome->exitCode;
    return countOf(*this, isIncomplete) > 0 ? kExitIncomplete : EX_OK;
}

bool Batch::isFinished() const
{
    return countOf(*this, isUntried) == 0;
}

void printSummary(const Batch& batch, const std::string& directory)
{
    const std::size_t skipped = countOf(batch, isSkipped);
    printNote(std::to_string(countOf(batch, isDone) - skipped) + " of " + filesText(batch, batch.files.size()) +
              " upmixed into " + shellQuoted(directory));
    if (skipped > 0)
        printNote(filesText(batch, skipped) + " skipped, because " +
                  (!batch.isResumed ? "the output is complete"
                   : skipped == 1   ? "it is done already"
                                    : "they are done already"));
    if (const std::size_t losses = countOf(batch, hasLoss); losses > 0)
        printNote(filesText(batch, losses) + " with losses, listed above");
    if (const std::size_t failed = countOf(batch, isFailed); failed > 0)
        printNote(filesText(batch, failed) + " failed, listed above");
}

void printEarlyEnd(const Batch& batch, const std::string& reason)
{
    const auto first = std::find_if_not(batch.files.begin(), batch.files.end(), isDone);
    const std::string missing =
        first == batch.files.end() ? "" : "; " + shellQuoted(first->input) + " is the first that is missing";
    printNote(reason + ": " + std::to_string(countOf(batch, isDone)) + " of " + filesText(batch, batch.files.size()) +
              " done" + missing + "; run again with " + (batch.isResumed ? "--resume" : "--skip-existing"));
}

Json jsonOf(const Batch& batch)
{
    Json reports = Json::array();
    for (const BatchFile& file : batch.files) reports.push_back(jsonOf(file));
    Json unreadable = Json::array();
    for (const std::string& file : batch.unreadable) unreadable.push_back({{"input", file}});
    return {{"files", reports},
            {"failed", countOf(batch, isFailed)},
            {"skipped", countOf(batch, isSkipped)},
            {"not_tried", countOf(batch, isUntried)},
            {"unreadable", unreadable}};
}

} // namespace tarn
