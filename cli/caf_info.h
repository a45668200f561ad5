#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn
{

/// The texts of a CAF info chunk.
struct CafInfo
{
    std::vector<std::pair<std::string, std::string>> texts; ///< name of a Vorbis comment, text as the file has it
    bool isCut = false;                                     ///< there are more than 1000 texts
};

/// Reads the contents of an info chunk: 32 bits with the number of texts, then key and text of each, both ended by a
/// zero. Keys of Apple's description of the format, and those that FFmpeg writes, get the usual names of Vorbis
/// comments; any other key is its own name. What describes the encoding of the stereo file is left out.
CafInfo readCafInfo(std::string_view contents);

} // namespace tarn
