// tarn film --output-dir: many films into one folder.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/batch_run.h"
#include "film/film_options.h"

namespace tarn
{

/// Upmixes every film into the folder. Continues after a film that fails. A film whose output would be that of an
/// earlier film fails too.
///
/// each  options for every film, without input and output
///
/// Returns the exit code: that of the first film, in the order given, that failed, or kExitIncomplete, or 0. Throws
/// Failure (EX_USAGE, EX_NOINPUT, EX_CANTCREAT) before anything is written, and Interrupted, after the report of
/// --json.
int runFilmBatch(const BatchOptions& options, const FilmOptions& each);

} // namespace tarn
