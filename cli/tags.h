#pragma once

#include <string>
#include <vector>

#include <sndfile.h>

namespace tarn
{

/// A text about a recording, under libsndfile's number for its kind.
struct Tag
{
    int kind;
    std::string text;
};

/// The tags that are carried from a file to what is made of it.
std::vector<Tag> readTags(SNDFILE* file);

/// Puts a tag into a file that is to be written, if its container has a place for the kind.
void writeTag(SNDFILE* file, const Tag& tag);

/// The comment names of FLAC files for the kinds that are carried, each with its equals sign.
struct FlacName
{
    int kind;
    const char* name;
};

/// A kind that none of the tags has, under whose name a FLAC file can keep a place; the comment where it is free, and
/// where nothing is, so that the comment has to give way.
FlacName freeFlacName(const std::vector<Tag>& tags);

} // namespace tarn
