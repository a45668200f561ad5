// tarn report: a page that shows upmixes of recordings.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/room_options.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// The options of `tarn report`.
struct ReportOptions
{
    std::vector<std::string> inputs; ///< files; with recursive also folders
    std::string output;              ///< an .html file
    bool recursive = false;
    unsigned jobs = 1; ///< number of parallel processes
    std::string layout = "3.0";
    std::string theme = "dark";
    RoomOptions room;
    std::optional<std::string> title;
    bool force = false;
    bool quiet = false;
};

/// Adds the subcommand and its options.
CLI::App* addReport(CLI::App& app, ReportOptions& options);

/// Upmixes every input and writes the page. Lists inputs that fail on the page.
///
/// Returns the exit code: that of the first input that failed, or kExitIncomplete if a second or more of an input is
/// missing, or 0. Throws Failure if there is no page: for its file, and if every input failed. Throws Interrupted.
int runReport(const ReportOptions& options);

} // namespace tarn
