// tarn upmix --output-dir: upmixes many files into one directory.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/batch_run.h"
#include "cli/upmix_options.h"

namespace tarn
{

/// Upmixes every input into the directory. Continues after a file that fails. A file whose output would be that of an
/// earlier file fails too.
///
/// album  all files get the same gain
/// each   options for every file, without input and output
/// Returns the exit code: that of the first input, in the order given, that failed, or kExitIncomplete, or 0. Throws
/// Failure (EX_USAGE, EX_NOINPUT, EX_CANTCREAT) before anything is written, if outputs would replace inputs, or a
/// folder cannot be read or created. Throws Interrupted, after the report of --json.
int runBatch(const BatchOptions& options, bool album, const UpmixOptions& each);

} // namespace tarn
