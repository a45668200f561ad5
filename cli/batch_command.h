#pragma once

#include "cli/upmix_command.h"

#include <string>
#include <vector>

namespace tarn
{

/// What `tarn upmix --output-dir` was asked for.
struct BatchOptions
{
    std::vector<std::string> inputs; ///< files, and folders with recursive
    std::string directory;           ///< created if it is missing
    bool recursive = false;
    std::string format = "wav"; ///< extension of the outputs, without its dot
    unsigned jobs = 1;          ///< files at a time
};

/// Upmixes every input into the directory, and goes on after one that fails.
///
/// each  the options of every file, without input and output
/// Returns the exit code: 0, or that of the first input, in the order given, that failed. Throws Failure (EX_USAGE,
/// EX_NOINPUT, EX_CANTCREAT) before anything is written, if outputs would meet or are inputs, or a folder cannot be
/// read or created; Interrupted.
int runBatch(const BatchOptions& batch, const UpmixOptions& each);

} // namespace tarn
