#pragma once

#include "cli/metadata.h"

#include <string>
#include <vector>

namespace tarn
{

/// Appends tags to a complete WAVE or RF64 file: a LIST chunk with the texts that RIFF INFO has names for, and an
/// ID3v2 tag with all of them and the pictures; and the chunks of the input.
///
/// descriptor  open for reading and writing
/// leftOut     gets a sentence for everything that has no place
/// Returns 0, or the errno of the call that failed.
int appendTags(int descriptor, const Metadata& metadata, std::vector<std::string>& leftOut);

} // namespace tarn
