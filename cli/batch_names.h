// Chooses the names of the outputs of a batch.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/input_search.h"

#include <filesystem>
#include <string>
#include <vector>

namespace tarn
{

/// Names the output of every input: song.flac with the ending "-5.1.wav" becomes DIRECTORY/song-5.1.wav, or
/// DIRECTORY/SUBFOLDER/song-5.1.wav if it was found below a folder.
///
/// If the folder of the input has another audio file with the same name except the extension, the output keeps the
/// extension: song.flac-5.1.wav and song.mp3-5.1.wav. A name does not depend on the other inputs of the batch, so two
/// inputs of different folders can have the same output.
std::vector<std::string> nameOutputs(const std::vector<FoundInput>& inputs, const std::filesystem::path& directory,
                                     const std::string& ending);

/// Throws Failure (EX_USAGE) if an output is also an input. Lists all of them on standard error first.
void refuseInputsAsOutputs(const std::vector<FoundInput>& inputs, const std::vector<std::string>& outputs);

} // namespace tarn
