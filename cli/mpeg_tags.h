// Reads the tags of MPEG audio.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/tag_collector.h"

#include <tiostream.h>

namespace tarn
{

/// Reads the ID3v2, APE and ID3v1 tags of MPEG audio.
void collectMpeg(TagLib::IOStream& stream, TagCollector& collector);

} // namespace tarn
