#pragma once

#include "cli/descriptor.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace tarn
{

/// A hidden file, .NAME.tarn-XXXXXX, that a run writes before it gets its name.
///
/// The run holds a lock on it. A run that was killed holds none, so that another run can tell what is left behind from
/// what is being written.
struct TemporaryFile
{
    std::string path;
    Descriptor file; ///< open for reading and writing, and owner of the lock; none if the file could not be created
    Descriptor lock; ///< keeps the lock when file is closed
};

/// Creates and locks a temporary file for a file of a name. errno says why, if there is none.
///
/// Where the file system has no locks, the file has none; such files are never taken for left behind.
TemporaryFile createTemporary(const std::filesystem::path& directory, const std::string& name);

/// Removes the caller's temporary files on which no run holds a lock.
void removeStaleTemporaries(const std::filesystem::path& directory);

/// The same, but only the first time for a directory in this process and those that it forks afterwards.
void removeStaleTemporariesOnce(const std::filesystem::path& directory);

/// Bytes of the longest file name that a directory takes.
std::size_t longestName(const std::filesystem::path& directory);

} // namespace tarn
