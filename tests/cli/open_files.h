// Which files a running command has open.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/cli/command.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace tarn_cli
{

/// Whether files in a directory can exist without a name.
bool hasFilesWithoutNames(const std::filesystem::path& directory);

/// Waits until the command and its children have a number of temporary files of outputs in the directory, with or
/// without names. Returns false after 20 seconds.
bool writesOutputs(const Process& process, const std::filesystem::path& directory, std::size_t outputs);

/// Waits until the command or a child has both a file of the directory and the temporary file of an output open.
/// Returns false after 20 seconds.
bool writesOutputOf(const Process& process, const std::filesystem::path& directory, const std::string& input);

} // namespace tarn_cli
