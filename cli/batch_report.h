// The outcomes of a batch, printed as a summary or as JSON.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json_type.h"
#include "cli/worker_processes.h"

#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// A file of the batch and its outcome.
struct BatchFile
{
    std::string input;
    std::string output;
    std::string refusal{};                  ///< why the file cannot be upmixed in this batch; empty if it can
    bool isReplaced = false;                ///< the output is that of an earlier run, and is replaced
    std::optional<WorkerOutcome> outcome{}; ///< none if the file was not tried or not finished
};

/// All files of a batch.
struct Batch
{
    std::vector<BatchFile> files{};
    std::vector<std::string> unreadable{}; ///< files below folders that have a format that tarn does not read

    bool isResumed = false;   ///< outputs of earlier runs are skipped as the ledger says
    std::string noun{"file"}; ///< what the files are, for messages; its plural ends with an s

    /// The exit code: that of the first file that failed, or kExitIncomplete, or 0.
    int exitCode() const;

    /// Whether every file was tried.
    bool isFinished() const;
};

/// Prints how many files were upmixed, skipped and failed.
void printSummary(const Batch& batch, const std::string& directory);

/// Notes that the run ended early, and how to continue.
void printEarlyEnd(const Batch& batch, const std::string& reason);

/// The report that --json prints.
Json jsonOf(const Batch& batch);

} // namespace tarn
