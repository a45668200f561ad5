// tarn film --output-dir: many films into one folder.
// SPDX-License-Identifier: MIT
#pragma once

#include "film/film_options.h"

#include <string>
#include <vector>

namespace tarn
{

/// The options of `tarn film --output-dir`.
struct FilmBatchOptions
{
    std::vector<std::string> inputs; ///< files; with recursive also folders
    std::string directory;           ///< created if it is missing
    bool recursive = false;
    std::string format = "mkv"; ///< extension of the outputs, without its dot
    unsigned jobs = 1;          ///< number of parallel processes
    bool skipExisting = false;  ///< an output has its name only when it is complete
    bool resume = false;        ///< leave out what the ledger of the directory lists
    std::string part = "1/1";   ///< NUMBER/COUNT: the share of the films that this run upmixes
};

/// Upmixes every film into the folder. Continues after a film that fails. A film whose output would be that of an
/// earlier film fails too.
///
/// each  options for every film, without input and output
///
/// Returns the exit code: that of the first film, in the order given, that failed, or 0. Throws Failure (EX_USAGE,
/// EX_NOINPUT, EX_CANTCREAT) before anything is written, and Interrupted, after the report of --json.
int runFilmBatch(const FilmBatchOptions& batch, const FilmOptions& each);

} // namespace tarn
