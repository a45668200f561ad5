// Chooses the names of the outputs of a batch.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/input_search.h"

#include <filesystem>
#include <string>
#include <vector>

namespace tarn
{

/// Names the output of every input after its whole file name: song.flac with the ending "-5.1.wav" becomes
/// DIRECTORY/song.flac-5.1.wav, or DIRECTORY/SUBFOLDER/song.flac-5.1.wav if it was found below a folder.
///
/// Two files of a folder never have the same output, and the name depends neither on other inputs nor on other files.
/// Inputs of different folders can have the same output.
std::vector<std::string> nameOutputs(const std::vector<FoundInput>& inputs, const std::filesystem::path& directory,
                                     const std::string& ending);

/// Throws Failure (EX_USAGE) if an output is also an input. Lists all of them on standard error first.
void refuseInputsAsOutputs(const std::vector<FoundInput>& inputs, const std::vector<std::string>& outputs);

} // namespace tarn
