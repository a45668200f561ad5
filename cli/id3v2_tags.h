// Reads and writes ID3v2 tags.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/tag_collector.h"

#include <string>
#include <vector>

#include <id3v2tag.h>
#include <tbytevector.h>

namespace tarn
{

/// Adds texts and pictures of an ID3v2 tag, and a note about frames of other kinds.
///
/// tag  nothing is added if it is null
void addId3v2(TagCollector& collector, const TagLib::ID3v2::Tag* tag);

/// Adds an ID3v2 tag in binary form.
void addId3v2(TagCollector& collector, const TagLib::ByteVector& bytes);

/// Makes an ID3v2 tag of texts and pictures.
///
/// leftOut  receives a note for every text that it cannot hold
/// Returns no bytes if there are no texts and pictures.
TagLib::ByteVector id3v2Tag(const Tags& tags, std::vector<std::string>& leftOut);

} // namespace tarn
