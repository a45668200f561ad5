// Parser for the info chunk of CAF files.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn
{

/// Texts of a CAF info chunk.
struct CafInfo
{
    std::vector<std::pair<std::string, std::string>> texts; ///< name of a Vorbis comment, unchanged text
    bool isTruncated = false;                               ///< the chunk has more than 1000 texts
};

/// Parses an info chunk: a 32-bit number of texts, then key and text of each, both ended by a zero. Maps the keys of
/// the format description and of FFmpeg to the usual names of Vorbis comments; any other key is its own name. Ignores
/// texts about the encoding of the stereo file.
CafInfo readCafInfo(std::string_view contents);

} // namespace tarn
