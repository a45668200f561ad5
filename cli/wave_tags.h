// Tags in WAV files.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/metadata.h"

#include <string>
#include <vector>

namespace tarn
{

/// Appends metadata to a complete WAVE or RF64 file: a LIST chunk with the texts that RIFF INFO supports, an ID3v2 tag
/// with all texts and pictures, and the chunks of the input.
///
/// descriptor  open for reading and writing
/// leftOut     receives a note for everything that the file cannot hold
/// Returns 0, or the errno of the call that failed.
int appendTags(int descriptor, const Metadata& metadata, std::vector<std::string>& leftOut);

} // namespace tarn
