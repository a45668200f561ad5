// tarn info: describes audio files.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace tarn
{

/// The options of `tarn info`.
struct InfoOptions
{
    std::vector<std::string> inputs; ///< files; with recursive also folders
    bool recursive = false;
    unsigned jobs = 1; ///< number of parallel processes
    bool verbose = false;
    bool json = false;
    bool quiet = false;
};

/// Prints format and verdict of every input, in the order of the inputs.
///
/// Continues after an input that fails. Returns the exit code: that of the first input that failed, or kExitIncomplete
/// if a second or more of a stereo file is missing, or 0.
/// Throws Failure (EX_NOINPUT) for folders that cannot be read or contain no audio file. Throws Interrupted.
int runInfo(const InfoOptions& options);

} // namespace tarn
