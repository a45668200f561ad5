// Everything that a report tells about one recording.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json_type.h"
#include "cli/room_options.h"

#include <string>

namespace tarn
{

/// How a report upmixes and draws recordings.
struct ReportStyle
{
    std::string layout;
    std::string theme;
    RoomOptions room; ///< fits the layout
};

/// Upmixes a recording as `tarn upmix` does, and measures and draws it in the same pass.
///
/// Returns an object:
///   title    artist and title, or the name of the file
///   info     as `tarn info --json` prints it
///   upmix    as `tarn upmix --json` prints it, without an output
///   before   integrated loudness of the source, LUFS; null if there is none, as in silence
///   after    the same of the upmix
///   picture  a PNG file, Base64
///
/// Throws Failure as `tarn upmix` does. Throws Interrupted.
Json measureEntry(const std::string& input, const ReportStyle& style, bool showsProgress, bool isQuiet);

} // namespace tarn
