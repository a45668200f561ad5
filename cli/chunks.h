#pragma once

#include <string>
#include <vector>

namespace tarn
{

/// A chunk of a WAVE file.
struct Chunk
{
    std::string name; ///< four characters
    std::string contents;
};

/// Names of the chunks of a WAVE, RF64 or CAF file that are not empty, in their order, 4096 at most.
///
/// descriptor  open for reading; its position stays where it is
std::vector<std::string> chunkNames(int descriptor);

/// Contents of all of these chunks that have a name. They have 16 MiB in all: a chunk beyond that, and one beyond the
/// end of the file, comes without contents.
std::vector<std::string> chunksNamed(int descriptor, const std::string& name);

} // namespace tarn
