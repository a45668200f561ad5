#pragma once

#include "cli/chunks.h"
#include "cli/tags.h"

#include <cstdint>
#include <optional>
#include <vector>

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
    std::vector<Chunk> chunks; ///< of a WAVE file, for another one
};

/// The same at another sample rate. Numbers of frames are converted, or left out and named.
Metadata atRate(Metadata metadata, std::uint32_t rate, std::uint32_t newRate);

/// Adds what a WAVE file says about its recording beside its tags: the broadcast extension without material number and
/// loudness, which are those of the stereo, and other chunks.
///
/// descriptor  open for reading; its position stays where it is
/// file        the same file as libsndfile has opened it
/// bigEndian   whether it is RIFX
void addWaveMetadata(Metadata& metadata, int descriptor, SNDFILE* file, bool bigEndian);

/// Puts the broadcast extension into a WAVE file before its audio.
void writeBroadcastInfo(SNDFILE* file, const BroadcastInfo& broadcast);

} // namespace tarn
