// The options of tarn film.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/ledger.h"
#include "cli/room_options.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tarn
{

/// The options of one film.
struct FilmOptions
{
    std::string input;
    std::string output;
    std::string layout = "5.1";          ///< 5.1 or 3.0
    std::string codec;                   ///< name of a codec; empty: the default of the container
    std::optional<std::int64_t> bitRate; ///< kb/s
    std::optional<int> stream;           ///< number of the track in the file
    std::string language;                ///< of the track; empty: any
    std::string dialnorm = "auto";       ///< auto, or -31 to -1
    std::string mode = "fast";           ///< name of a steering mode
    RoomOptions room;
    bool loudnessMatch = false;
    bool replace = false;    ///< leave the original track out
    bool forceTrack = false; ///< also if the default track is a surround track
    bool force = false;
    bool skipExisting = false; ///< in a batch, skip the film if its output exists
    bool quiet = false;
    bool inBatch = false;
    bool json = false;
    Recorder record{}; ///< adds the output to a ledger; can be empty
};

} // namespace tarn
