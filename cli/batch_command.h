#pragma once

#include "cli/upmix_command.h"

#include <string>
#include <vector>

namespace tarn
{

/// What `tarn upmix --output-dir` was asked for.
struct BatchOptions
{
    std::vector<std::string> inputs;
    std::string directory;      ///< created if it is missing
    std::string format = "wav"; ///< extension of the outputs, without its dot
    unsigned jobs = 1;          ///< files at a time
};

/// Upmixes every input into the directory, and goes on after one that fails.
///
/// each  the options of every file, without input and output
/// Returns the exit code: 0, or that of the first input, in the order given, that failed. Throws Failure (EX_USAGE,
/// EX_CANTCREAT) before anything is written, if two outputs would have one name or an output is an input; Interrupted.
int runBatch(const BatchOptions& batch, const UpmixOptions& each);

/// The name of an input's output: song.flac in layout 5.1 becomes DIR/song-5.1.wav.
std::string batchOutput(const BatchOptions& batch, const std::string& layout, const std::string& input);

} // namespace tarn
