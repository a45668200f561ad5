// Collects the texts and pictures of a recording from several tags.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/tags.h"

#include <string>

#include <flacpicture.h>
#include <tpropertymap.h>

namespace tarn
{

/// Collects the tags of a file. The first tag of a name wins.
class TagCollector
{
public:
    /// Adds texts by the names of Vorbis comments. Ignores those that describe the stereo file.
    ///
    /// Returns whether a new text has characters outside ASCII.
    bool add(const TagLib::PropertyMap& texts);

    /// Converts a text that should be UTF-8, or whose encoding is not declared, to UTF-8.
    std::string toUtf8Text(const std::string& bytes);

    void addPicture(const TagLib::FLAC::Picture& picture);

    Tags tags;
};

/// Joins names for a note: "A, B".
std::string joinedNames(const TagLib::StringList& names);

} // namespace tarn
