// Finds the parts of files that were joined from several audio files.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/byte_range.h"

#include <vector>

namespace tarn
{

/// The streams of an Ogg file.
struct OggLinks
{
    std::vector<ByteRange> links;   ///< consecutive logical streams (RFC 3533, section 4); at least one
    std::uint64_t skippedBytes = 0; ///< bytes outside pages with a correct checksum
    std::uint64_t end = 0;          ///< position after the last page
};

/// Finds the links of an Ogg file, which may be chained.
///
/// descriptor  open for reading; its position does not change
/// The links together cover the whole file.
OggLinks oggLinks(int descriptor);

/// Finds the parts of a file that was joined from WAVE, RF64, W64, AIFF, AU or CAF files, by their declared sizes.
///
/// descriptor  open for reading; its position does not change
/// Returns at least one part; together they cover the whole file.
std::vector<ByteRange> containerParts(int descriptor);

/// Finds the parts of MPEG audio that was joined from several files. A part begins at an index frame (Xing, Info or
/// VBRI), where the version, layer or rate changes, or after the frames that the last index declares if a second or
/// more follows. A file of another format after the frames is the last part.
///
/// descriptor  open for reading; its position does not change
/// Returns at least one part; together they cover the whole file.
std::vector<ByteRange> mpegParts(int descriptor);

} // namespace tarn
