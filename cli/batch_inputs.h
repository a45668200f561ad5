// The inputs of a batch and the names of their outputs.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/input_search.h"

#include <string>
#include <vector>

namespace tarn
{

/// A share of a batch: the files whose names have this remainder.
struct BatchPart
{
    unsigned number = 1; ///< 1 to count
    unsigned count = 1;
};

/// Parses NUMBER/COUNT, such as 3/100. Throws Failure (EX_USAGE).
BatchPart parsePart(const std::string& text);

/// What names the files of a batch.
struct BatchNames
{
    const std::vector<std::string>& inputs; ///< files; with recursive also folders
    const std::string& directory;           ///< of the outputs
    bool recursive;
    MediaKind kind;
    std::string ending; ///< of the outputs, behind the whole name of the input
    BatchPart part{};
};

/// An input of a batch.
struct BatchInput
{
    std::string input;
    std::string output;
    std::string refusal{}; ///< why it cannot be upmixed in this batch: its output is that of an earlier file; or empty
};

/// Why a file cannot be upmixed if its output is that of another file.
std::string sharedOutputRefusal(const std::string& input, const std::string& other, const std::string& output);

/// The inputs of a batch.
struct BatchInputs
{
    std::vector<BatchInput> files{};
    std::vector<std::string> unreadable{}; ///< below folders: media files that the command does not read
    std::vector<std::string> notes{};      ///< about unreadable and repeated files
};

/// Finds the inputs and names their outputs after the whole file names of the inputs. Two files of a folder never have
/// the same output. Inputs of different folders can have the same output.
///
/// The part that a file belongs to depends only on the name of its output below the directory. So the parts of a batch
/// have no file in common, on any number of machines and while files are added.
///
/// Throws Failure: EX_USAGE for names that cannot be inputs, and if an output is also an input, after a list on
/// standard error; EX_NOINPUT for folders that cannot be read or contain nothing to upmix.
BatchInputs findBatchInputs(const BatchNames& names);

} // namespace tarn
