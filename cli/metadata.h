#pragma once

#include "cli/tags.h"

#include <optional>

#include <sndfile.h>

namespace tarn
{

/// Who made a recording and when, and its place on a time line: the broadcast extension of WAVE (EBU Tech 3285), with
/// as long a coding history as libsndfile has room for. A struct takes its name from a typedef, but not from an alias.
// NOLINTNEXTLINE(modernize-use-using)
typedef SF_BROADCAST_INFO_VAR(16000) BroadcastInfo;

/// What a file says about its recording and still holds for an upmix of it.
struct Metadata
{
    Tags tags;
    std::optional<BroadcastInfo> broadcast;
};

/// Reads the broadcast extension without material number and loudness, which are those of the stereo.
std::optional<BroadcastInfo> readBroadcastInfo(SNDFILE* file);

/// Puts the broadcast extension into a WAVE file before its audio.
void writeBroadcastInfo(SNDFILE* file, const BroadcastInfo& broadcast);

} // namespace tarn
