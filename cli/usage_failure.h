// Messages about wrong options and arguments.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/failure.h"

#include <CLI/CLI.hpp>

#include <string>

namespace tarn
{

/// The commands for messages: "film, upmix, ... or demo".
std::string commandList(const CLI::App& app);

/// The failure for an error of the option parser.
///
/// app   that parsed the arguments
/// help  command line that prints the options of the command
Failure usageFailure(const CLI::App& app, const CLI::ParseError& error, const std::string& help);

/// Refuses a number behind an option without a value, which would be read as the name of a file. Throws Failure
/// (EX_USAGE).
///
/// command  after parsing
void refuseStrayNumbers(const CLI::App& command, const std::string& help);

} // namespace tarn
