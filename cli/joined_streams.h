#pragma once

#include "cli/byte_range.h"

#include <vector>

namespace tarn
{

/// The links of a chained Ogg file: complete streams, one after the other (RFC 3533, section 4).
///
/// descriptor  open for reading; its position stays where it is
/// Returns at least one part; together they are the whole file.
std::vector<ByteRange> oggLinks(int descriptor);

/// The parts of MPEG audio that was joined from several files: each begins with an index frame of its own (Xing, Info
/// or VBRI), or where the frames that the index before declares are over and a second or more follows.
///
/// descriptor  open for reading; its position stays where it is
/// Returns at least one part; together they are the whole file.
std::vector<ByteRange> mpegParts(int descriptor);

} // namespace tarn
