// Runs the work on each file in a process of its own.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <sysexits.h>

namespace tarn
{

/// Outcome of the work on a file.
struct WorkerOutcome
{
    Json result{};        ///< result of the work; null if it failed
    std::string error{};  ///< message with the name of the file; empty if it succeeded
    int exitCode = EX_OK; ///< one of sysexits.h
    bool crashed = false; ///< the process ended before its work
    bool endsRun = false; ///< every further file would fail too
};

/// Runs the work on every file in a process of its own, so that a crash of a codec library affects one file only.
///
/// The calling process must have one thread; it forks. A child returns its result through a pipe. No child outlives its
/// parent.
///
/// names  of the files, for messages
/// jobs   number of parallel processes
/// work   called in the child with the index of a file; an exception becomes the error of the outcome
/// done   called in this process for every file in the order of the names, when all files before it are done
///
/// Starts no more files after an OutputFailure and does not call done for them. Forwards a signal to the children,
/// calls done for the files that are finished, then throws Interrupted. Throws Failure (EX_SOFTWARE) if no process can
/// be created, and what done throws; then no child is left.
void runInProcesses(const std::vector<std::string>& names, unsigned jobs, const std::function<Json(std::size_t)>& work,
                    const std::function<void(std::size_t, WorkerOutcome&&)>& done);

} // namespace tarn
