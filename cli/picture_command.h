// tarn picture: draws the upmix of a file or stream.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/picture_file.h"
#include "cli/room_options.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace tarn
{

/// The options of `tarn picture`.
struct PictureOptions
{
    std::string input;  ///< a file, or - for standard input
    std::string output; ///< a .png or .svg file
    std::string layout = "3.0";
    std::string theme = "dark";
    RoomOptions room{};
    std::optional<std::string> raw;    ///< RATE:BITS of the stream on -
    std::optional<std::string> start;  ///< time of the first frame
    std::optional<std::string> length; ///< of the part to draw
    std::optional<std::string> size;   ///< WxH
    std::optional<std::string> title;
    bool force = false;
    bool quiet = false;
};

/// Adds the subcommand and its options.
CLI::App* addPicture(CLI::App& app, PictureOptions& options);

/// Upmixes INPUT and draws it. Returns the exit code. Throws Failure or Interrupted; then no picture is left.
int runPicture(const PictureOptions& options);

} // namespace tarn
