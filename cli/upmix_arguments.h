// The arguments of tarn upmix.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/batch_command.h"
#include "cli/upmix_options.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace tarn
{

/// Arguments of `tarn upmix`: one file to one file, or many files to a directory.
struct UpmixArguments
{
    UpmixOptions options;
    BatchOptions batch{.format = "wav"};
    bool album = false;                 ///< all files of the batch get the same gain
    std::vector<std::string> moreNames; ///< after the second
};

/// Adds the subcommand and its options.
CLI::App* addUpmix(CLI::App& app, UpmixArguments& arguments);

/// Runs `tarn upmix` with the parsed arguments. Returns the exit code.
int runUpmix(UpmixArguments& arguments, const CLI::App& command);

} // namespace tarn
