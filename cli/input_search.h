// Finds the audio files below folders.
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tarn
{

/// A file that was named, or found below a folder.
struct FoundInput
{
    std::string path;
    std::filesystem::path folder; ///< relative to the folder on the command line; empty for a file on the command line
};

/// The files that names and folders stand for.
struct FoundInputs
{
    std::vector<FoundInput> files{};
    std::vector<std::string> unreadable{}; ///< below folders: media files of formats that libsndfile does not read
    std::vector<std::string> repeated{};   ///< files that were named again; they are in files once

    /// Notes about unreadable and repeated files.
    std::vector<std::string> notes() const;
};

/// Expands folders to all audio files below them. Other names stay as they are.
///
/// Selects the files of a folder by the extensions of formats that libsndfile reads, and sorts them. Selects broken
/// symbolic links too, so that opening them fails. Ignores hidden files and folders, and links to folders.
///
/// excluded  a folder that is not searched; empty for none
///
/// Throws Failure (EX_NOINPUT) for folders that cannot be read or contain no audio file.
FoundInputs findInputs(const std::vector<std::string>& names, const std::filesystem::path& excluded);

} // namespace tarn
