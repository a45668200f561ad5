// Checks an output file of the command.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/layout.h"
#include "cli/stream_format.h"

#include <cstdint>
#include <string>

namespace fuzz
{

/// The expected properties of an output file.
struct WrittenFile
{
    const tarn::Layout& layout;
    tarn::StreamFormat format;
    std::uint64_t frames;
};

/// Reads an output file, .wav or .flac, to its end.
///
/// libsndfile has to find the expected channels, rate, width and frames. The chunks of a WAVE file have to end at the
/// end of the file. A FLAC file has to decode without error to its MD5, and its metadata has to be valid.
/// Returns a description of the first fault; empty if there is none.
std::string faultOf(const std::string& path, const WrittenFile& expected);

} // namespace fuzz
