// Reads the metadata of FLAC and the comments of Ogg streams.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/tag_collector.h"

#include <tiostream.h>

namespace tarn
{

/// Reads the metadata blocks of a FLAC file, and an ID3v2 tag before it.
void collectFlac(TagLib::IOStream& stream, TagCollector& collector);

/// Reads the comments of an Ogg stream, and an ID3v2 tag before it.
///
/// subtype  SF_FORMAT_VORBIS, SF_FORMAT_OPUS, or any other for FLAC
void collectOgg(TagLib::IOStream& stream, int subtype, TagCollector& collector);

} // namespace tarn
