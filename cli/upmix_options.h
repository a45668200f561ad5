// The options of tarn upmix.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/album_level.h"
#include "cli/ledger.h"
#include "cli/room_options.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tarn
{

/// Whether the name stands for a standard stream.
inline bool isStream(const std::string& name)
{
    return name == "-";
}

/// The options of one upmix.
struct UpmixOptions
{
    std::string input;                 ///< a file, or - for standard input
    std::string output;                ///< a file, or - for standard output
    std::string picture;               ///< file for a picture of the output; empty: none
    std::string layout = "3.0";        ///< name of a layout
    std::string remapFile;             ///< empty: none
    std::optional<std::uint32_t> bits; ///< width of the output
    std::optional<std::string> raw;    ///< RATE:BITS of the stream on -
    std::optional<std::uint32_t>
        rate;                  ///< of the output, Hz; default: the input's, or the next that the engine supports
    bool strict = false;       ///< refuse a damaged input
    std::string mode = "fast"; ///< name of a steering mode
    bool loudnessMatch = false;
    std::optional<AlbumLevel> album; ///< common level of all files of a run; none: each file has its own
    RoomOptions room;
    bool bypass = false;
    bool noAlign = false;
    bool force = false;
    bool skipExisting = false; ///< skip the input if its output is complete
    bool quiet = false;
    bool inBatch = false; ///< one of many files: no progress bar, no note about skipping
    bool json = false;
    Recorder record{}; ///< adds the output to a ledger; can be empty

    /// Names of input and output in messages.
    std::string inputName() const { return isStream(input) ? "standard input" : input; }
    std::string outputName() const { return isStream(output) ? "standard output" : output; }
};

/// Refuses options that contradict each other, before any file is opened. Throws Failure (EX_USAGE).
void checkOptions(const UpmixOptions& options);

} // namespace tarn
