#pragma once

#include <optional>
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

/// Who made a recording and when, and where it stands on a time line: the broadcast extension of WAVE (EBU Tech 3285),
/// with as long a coding history as libsndfile has room for.
/// A struct takes its name from a typedef, but not from an alias.
// NOLINTNEXTLINE(modernize-use-using)
typedef SF_BROADCAST_INFO_VAR(16000) BroadcastInfo;

/// What a file says about its recording and still holds for an upmix of it.
struct Metadata
{
    std::vector<Tag> tags;
    std::optional<BroadcastInfo> broadcast;
};

/// What is carried from a file to what is made of it.
Metadata readMetadata(SNDFILE* file);

/// Puts into a file that is to be written what its container has a place for.
void writeMetadata(SNDFILE* file, const Metadata& metadata);

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
