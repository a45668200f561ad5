// Lists and reads the chunks of WAVE, RF64, W64, AIFF and CAF files.
// SPDX-License-Identifier: MIT
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

/// Names of the non-empty chunks of a WAVE, RF64, W64, AIFF or CAF file, in file order.
///
/// descriptor  open for reading; its position does not change
std::vector<std::string> chunkNames(int descriptor);

/// Contents of all chunks with this name, up to 16 MiB in total. A chunk beyond that limit or beyond the end of the
/// file has no contents.
std::vector<std::string> chunksNamed(int descriptor, const std::string& name);

} // namespace tarn
