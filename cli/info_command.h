#pragma once

#include <string>
#include <vector>

namespace tarn
{

/// What `tarn info` was asked for.
struct InfoOptions
{
    std::vector<std::string> inputs;
    unsigned jobs = 1; ///< files at a time
    bool verbose = false;
    bool json = false;
    bool quiet = false;
};

/// Prints what the inputs are and whether upmixing them gains anything, in the order of the inputs.
///
/// One input that fails does not stop the rest. Returns the exit code: that of the first input that failed, or
/// kExitIncomplete if stereo lacks a second or more, or 0.
/// Throws Interrupted.
int runInfo(const InfoOptions& options);

} // namespace tarn
