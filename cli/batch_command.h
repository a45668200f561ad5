// tarn upmix --output-dir: upmixes many files into one directory.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/upmix_command.h"

#include <string>
#include <vector>

namespace tarn
{

/// The options of `tarn upmix --output-dir`.
struct BatchOptions
{
    std::vector<std::string> inputs; ///< files; with recursive also folders
    std::string directory;           ///< created if it is missing
    bool recursive = false;
    std::string format = "wav"; ///< extension of the outputs, without its dot
    unsigned jobs = 1;          ///< number of parallel processes
    bool album = false;         ///< all files get the same gain
    bool resume = false;        ///< leave out what the ledger of the directory lists
    std::string part = "1/1";   ///< NUMBER/COUNT: the share of the files that this run upmixes
};

/// Upmixes every input into the directory. Continues after a file that fails. A file whose output would be that of an
/// earlier file fails too.
///
/// each  options for every file, without input and output
/// Returns the exit code: that of the first input, in the order given, that failed, or kExitIncomplete, or 0. Throws
/// Failure (EX_USAGE, EX_NOINPUT, EX_CANTCREAT) before anything is written, if outputs would replace inputs, or a
/// folder cannot be read or created. Throws Interrupted, after the report of --json.
int runBatch(const BatchOptions& options, const UpmixOptions& each);

} // namespace tarn
