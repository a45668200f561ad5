#pragma once

#include "cli/byte_range.h"

#include <vector>

namespace tarn
{

/// The streams of an Ogg file.
struct OggLinks
{
    std::vector<ByteRange> links;   ///< complete streams, one after the other (RFC 3533, section 4); at least one
    std::uint64_t skippedBytes = 0; ///< that belong to no page with a right checksum
};

/// Finds the links of an Ogg file, which may be chained.
///
/// descriptor  open for reading; its position stays where it is
/// The links together are the whole file.
OggLinks oggLinks(int descriptor);

/// The parts of a file that WAVE, RF64, W64, AIFF, AU or CAF files were joined to, at the ends that their sizes
/// declare.
///
/// descriptor  open for reading; its position stays where it is
/// Returns at least one part; together they are the whole file.
std::vector<ByteRange> containerParts(int descriptor);

/// The parts of MPEG audio that was joined from several files: each begins with an index frame of its own (Xing, Info
/// or VBRI), where frames of another version, layer or rate follow, or where the frames that the index before declares
/// are over and a second or more follows.
///
/// descriptor  open for reading; its position stays where it is
/// Returns at least one part; together they are the whole file.
std::vector<ByteRange> mpegParts(int descriptor);

} // namespace tarn
