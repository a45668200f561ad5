// tarn meter: shows a stream or a file while it plays.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/room_options.h"

#include <optional>
#include <string>

namespace tarn
{

/// The options of `tarn meter`.
struct MeterOptions
{
    std::string input;                ///< a file, or - for standard input; with raw also empty
    std::optional<std::string> raw;   ///< RATE:BITS of the stream on standard input
    bool pass = false;                ///< writes the raw stream to standard output as it is
    bool upmix = false;               ///< writes its upmix to standard output
    std::optional<std::string> start; ///< time of the first frame of a file
    std::optional<double> speed;      ///< of a file; none: 1
    std::string layout = "3.0";
    std::string mode = "fast";
    RoomOptions room;
    bool json = false; ///< lines of JSON instead of text
};

/// Plays the input to its end, or until the user quits, and shows the meters: as a screen on a terminal, else as a line
/// for every second of the input. Returns the exit code.
///
/// Throws Failure: EX_USAGE for options that contradict each other; also what the sources throw. Throws Interrupted.
int runMeter(const MeterOptions& options);

} // namespace tarn
