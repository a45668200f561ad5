// Finds the input files of a batch and chooses the names of its outputs.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace tarn
{

/// An input of a batch.
struct BatchInput
{
    std::string path;
    std::filesystem::path folder; ///< relative to the folder on the command line; empty for a file on the command line
};

/// Files below folders with the extension of an audio format that cannot be read.
struct UnreadableFiles
{
    std::map<std::string, std::size_t> counts{}; ///< by extension
    std::string first{};

    /// A note that lists them and shows how to convert them; empty if there are none.
    std::string note() const;
};

/// All inputs of a batch.
struct FoundInputs
{
    std::vector<BatchInput> files{};
    UnreadableFiles unreadable{};
};

/// Expands names to files: files as they are; with recursive, folders to all audio files below them.
///
/// Selects the files of a folder by the extensions of formats that libsndfile reads, and sorts them. Ignores hidden
/// files and folders, links to folders, and outputDirectory.
///
/// Throws Failure: EX_USAGE for streams, for folders without recursive, and for outputDirectory itself; EX_NOINPUT for
/// folders that cannot be read or contain no audio file.
FoundInputs findInputs(const std::vector<std::string>& names, bool recursive,
                       const std::filesystem::path& outputDirectory);

/// Names the output of every input: song.flac with the ending "-5.1.wav" becomes DIRECTORY/song-5.1.wav, or
/// DIRECTORY/SUBFOLDER/song-5.1.wav if it was found below a folder.
///
/// If two names collide, all outputs keep the folders of their inputs relative to the deepest common folder. Lists
/// outputs that still collide or that are inputs on standard error, and throws Failure (EX_USAGE).
std::vector<std::string> nameOutputs(const std::vector<BatchInput>& inputs, const std::filesystem::path& directory,
                                     const std::string& ending);

} // namespace tarn
