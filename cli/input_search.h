// Finds the audio files or films below folders.
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tarn
{

/// What a command looks for in folders.
enum class MediaKind
{
    Audio, ///< audio files that libsndfile reads
    Films, ///< films, and audio files that only FFmpeg reads
};

/// A file that was named, or found below a folder.
struct FoundInput
{
    std::string path;
    std::string folder; ///< relative to the folder on the command line; empty for a file on the command line
};

/// The files that names and folders stand for.
struct FoundInputs
{
    std::vector<FoundInput> files{};
    std::vector<std::string> unreadable{}; ///< below folders: media files of the other kind
    std::vector<std::string> repeated{};   ///< files that were named again; they are in files once

    MediaKind kind = MediaKind::Audio;

    /// Notes about unreadable and repeated files.
    std::vector<std::string> notes() const;
};

/// Expands folders to all files of a kind below them. Other names stay as they are.
///
/// Selects the files of a folder by their extensions, and sorts them. An extension that other files have too, such as
/// .ts, counts if the content is an MPEG transport stream. Selects broken symbolic links too, so that opening them
/// fails. Ignores hidden files and folders, and links to folders.
///
/// excluded  a folder that is not searched; empty for none
///
/// Throws Failure (EX_NOINPUT) for folders that cannot be read or contain no file of the kind.
FoundInputs findInputs(const std::vector<std::string>& names, const std::filesystem::path& excluded,
                       MediaKind kind = MediaKind::Audio);

/// The audio files of a command line: with recursive what findInputs finds, else the names as they are.
FoundInputs inputsOf(const std::vector<std::string>& names, bool recursive);

} // namespace tarn
