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
    std::filesystem::path folder; ///< in which it lies below the folder that was named; empty for a file that was named
};

/// Files below folders that are audio by their extension, but of a format that cannot be read.
struct UnreadableFiles
{
    std::map<std::string, std::size_t> counts{}; ///< by extension
    std::string first{};

    /// What they are, and how to convert them; empty if there are none.
    std::string note() const;
};

/// What the names of a batch mean.
struct FoundInputs
{
    std::vector<BatchInput> files{};
    UnreadableFiles unreadable{};
};

/// The audio files that names mean: files as they are, and with recursive, folders with all audio files below them.
///
/// Audio files of a folder are those with an extension of a format that libsndfile reads. They are sorted. Hidden files
/// and folders, links to folders, and outputDirectory are left out.
///
/// Throws Failure: EX_USAGE for streams, for folders without recursive, and for outputDirectory itself; EX_NOINPUT for
/// folders that cannot be read or hold no audio file.
FoundInputs findInputs(const std::vector<std::string>& names, bool recursive,
                       const std::filesystem::path& outputDirectory);

/// The output of every input: song.flac with the ending "-5.1.wav" becomes DIRECTORY/song-5.1.wav, and below a folder
/// that was named DIRECTORY/SUBFOLDER/song-5.1.wav.
///
/// Where two of these would meet, all outputs go below the folders that their inputs have beneath their deepest common
/// folder. Outputs that still meet, or that are inputs, are listed on standard error, and Failure (EX_USAGE) is thrown.
std::vector<std::string> nameOutputs(const std::vector<BatchInput>& inputs, const std::filesystem::path& directory,
                                     const std::string& ending);

} // namespace tarn
