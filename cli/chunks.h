#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sndfile.h>

namespace tarn
{

/// A chunk of a WAVE or CAF file.
struct Chunk
{
    std::string name; ///< four characters
    std::string contents;
};

/// Names of all chunks of a file that are not empty, in their order.
///
/// file  as libsndfile has opened it
std::vector<std::string> chunkNames(SNDFILE* file);

/// Contents of all chunks of a name that are not empty, in their order. They have 16 MiB in all, and no more than the
/// file: a chunk beyond that comes without contents.
///
/// file      as libsndfile has opened it
/// fileSize  in bytes
std::vector<std::string> chunksNamed(SNDFILE* file, const std::string& name, std::uint64_t fileSize);

} // namespace tarn
