#pragma once

#include "cli/json.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <sysexits.h>

namespace tarn
{

/// How the work on a file ended.
struct WorkerOutcome
{
    Json result{};        ///< what the work returned; null where it failed
    std::string error{};  ///< message that begins with the file's name; empty where it succeeded
    int exitCode = EX_OK; ///< one of sysexits.h
    bool crashed = false; ///< the process ended before the work did
    bool endsRun = false; ///< every further file would fail as well
};

/// Works on every file in a process of its own, so that a crash of a codec library costs one file.
///
/// The calling process stays single-threaded and forks. A child's result comes back through a pipe, of any size.
/// No child outlives its parent.
///
/// names  of the files, for messages
/// jobs   processes at a time
/// work   called in the child with the index of a file; what it throws becomes the outcome's error
/// done   called in this process for every file in the order of the names, as soon as all before it have ended
///
/// After an OutputFailure no more files are started, and done is not called for them. After a signal, which goes on to
/// the children, done is called for those that had ended their work; then Interrupted is thrown. Throws Failure
/// (EX_SOFTWARE) if the system gives no process, and what done throws; then no child is left.
void runInProcesses(const std::vector<std::string>& names, unsigned jobs, const std::function<Json(std::size_t)>& work,
                    const std::function<void(std::size_t, WorkerOutcome&&)>& done);

} // namespace tarn
