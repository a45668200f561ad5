// Runs a batch: many files into one directory.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/batch_report.h"
#include "cli/input_search.h"
#include "cli/resume.h"

#include <functional>
#include <string>
#include <vector>

namespace tarn
{

/// The options of --output-dir that all commands have.
struct BatchOptions
{
    std::vector<std::string> inputs{}; ///< files; with recursive also folders
    std::string directory{};           ///< created if it is missing
    bool recursive = false;
    std::string format{};     ///< extension of the outputs, without its dot
    unsigned jobs = 1;        ///< number of parallel processes
    bool resume = false;      ///< leave out what the ledger of the directory lists
    std::string part = "1/1"; ///< NUMBER/COUNT: the share of the files that this run upmixes
};

/// The options of a file of the batch.
///
/// each      options of the command for every file
/// recorder  can be empty
template <typename Options>
Options optionsOf(const BatchFile& file, const Options& each, const Recorder& recorder = {})
{
    Options options = each;
    options.input = file.input;
    options.output = file.output;
    options.force = each.force || file.isReplaced;
    options.skipExisting = each.skipExisting && !file.isReplaced;
    options.inBatch = true;
    options.record = recorder;
    return options;
}

/// What a command does with its batch.
struct BatchWork
{
    bool force = false;
    bool skipExisting = false;
    bool strict = false;
    bool quiet = false;
    std::function<void(Batch&)> prepare{};     ///< called before the first file; can be empty
    std::function<std::string()> optionText{}; ///< for the ledger; called after prepare
    std::function<void(const Batch&)>
        report{}; ///< prints the report of --json; also called before Interrupted is thrown

    /// Upmixes a file, in a process of its own, and returns its report. The recorder can be empty.
    std::function<Json(const BatchFile&, const Recorder&)> upmix{};
};

/// Lists the files of a batch and prints notes about those that are left out, unless quiet is set. Throws what
/// parsePart and findBatchInputs throw.
Batch findBatch(const BatchOptions& options, MediaKind kind, const std::string& layout, bool quiet);

/// Upmixes the files. Continues after a file that fails.
///
/// Returns the exit code of the batch. Throws Failure (EX_NOINPUT, EX_CANTCREAT) before anything is written, and
/// Interrupted, after the report.
int runFiles(Batch& batch, const BatchOptions& options, const BatchWork& work);

/// Does some work on all files without an outcome, in processes of their own, and shows the current one. Throws as
/// runInProcesses does.
///
/// label  what happens to them, with a space at the end; can be empty
/// done   called with each file and its outcome
void runPending(Batch& batch, const std::string& label, unsigned jobs, bool quiet,
                const std::function<Json(const BatchFile&)>& work,
                const std::function<void(BatchFile&, WorkerOutcome&&)>& done);

} // namespace tarn
