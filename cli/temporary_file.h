// Locked temporary files in the directory of an output, and their final names.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/descriptor.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace tarn
{

/// A file that becomes an output file.
///
/// It has no name where the file system supports that (O_TMPFILE, linkat), so it disappears with the process. Elsewhere
/// it is a hidden file, .NAME.tarn-temporary-PROCESS-XXXXXX. The process holds a lock on it. A killed process holds
/// none, so other processes can recognise its stale files.
struct TemporaryFile
{
    std::string path{};   ///< the hidden name; empty if creation failed
    Descriptor file{};    ///< open for reading and writing; none if creation failed
    Descriptor lock{};    ///< keeps the lock after file is closed
    bool isNamed = false; ///< whether path exists
};

/// Creates and locks a temporary file for an output of this name. On failure, errno holds the reason. Throws Failure if
/// there is no free name.
///
/// An empty file has the hidden name for a moment: this shows whether a file without a name can get one.
/// On file systems without locks, temporary files are never removed as stale.
TemporaryFile createTemporary(const std::filesystem::path& directory, const std::string& name);

/// The same, always with a hidden name.
TemporaryFile createNamedTemporary(const std::filesystem::path& directory, const std::string& name);

/// Creates a file without a name; on file systems that need a name, removes it at once. On failure, errno holds the
/// reason. Throws Failure if there is no free name.
Descriptor createUnnamed(const std::filesystem::path& directory);

/// Gives a complete temporary file its final name. Its descriptor file can be closed. Returns 0 or an errno, EEXIST if
/// the name exists and replace is not set.
int giveName(TemporaryFile& temporary, const std::string& name, bool replace);

/// Removes unlocked temporary files of this user: regular files whose names have exactly the form above.
void removeStaleTemporaries(const std::filesystem::path& directory);

/// The same, but only once per directory in this process and its later children.
void removeStaleTemporariesOnce(const std::filesystem::path& directory);

/// Maximum length of a file name in a directory, in bytes.
std::size_t maxNameBytes(const std::filesystem::path& directory);

} // namespace tarn
