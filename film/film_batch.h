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
    std::vector<std::string> inputs;
    std::string directory;      ///< created if it is missing
    std::string format = "mkv"; ///< extension of the outputs, without its dot
    unsigned jobs = 1;          ///< number of parallel processes
    bool skipExisting = false;  ///< an output has its name only when it is complete
};

/// Upmixes every film into the folder. Continues after a film that fails.
///
/// each  options for every film, without input and output
///
/// Returns the exit code: that of the first film, in the order given, that failed, or 0. Throws Failure (EX_USAGE,
/// EX_CANTCREAT) before anything is written, and Interrupted.
int runFilmBatch(const FilmBatchOptions& batch, const FilmOptions& each);

} // namespace tarn
