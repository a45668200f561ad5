// Locked temporary files in the directory of an output.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/descriptor.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace tarn
{

/// A hidden file, .NAME.tarn-temporary-PROCESS-XXXXXX, that becomes an output file.
///
/// The process holds a lock on it. A killed process holds none, so other processes can recognise its stale files.
struct TemporaryFile
{
    std::string path;
    Descriptor file; ///< open for reading and writing; none if creation failed
    Descriptor lock; ///< keeps the lock after file is closed
};

/// Creates and locks a temporary file for an output of this name. On failure, errno holds the reason.
///
/// On file systems without locks, temporary files are never removed as stale.
TemporaryFile createTemporary(const std::filesystem::path& directory, const std::string& name);

/// Removes unlocked temporary files of this user: regular files whose names have exactly the form above.
void removeStaleTemporaries(const std::filesystem::path& directory);

/// The same, but only once per directory in this process and its later children.
void removeStaleTemporariesOnce(const std::filesystem::path& directory);

/// Maximum length of a file name in a directory, in bytes.
std::size_t maxNameBytes(const std::filesystem::path& directory);

} // namespace tarn
