// Tags, broadcast extension and chunks that go from the input to the output.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/chunks.h"
#include "cli/tags.h"

#include <cstdint>
#include <optional>
#include <vector>

#include <sndfile.h>

namespace tarn
{

/// The broadcast extension of WAVE (EBU Tech 3285): originator, date and time reference, with the longest coding
/// history that libsndfile supports. The macro defines an unnamed struct, which needs a typedef.
// NOLINTNEXTLINE(modernize-use-using)
typedef SF_BROADCAST_INFO_VAR(16000) BroadcastInfo;

/// Metadata of a recording that stays valid for its upmix.
struct Metadata
{
    Tags tags;
    std::optional<BroadcastInfo> broadcast;
    std::vector<Chunk> chunks; ///< of a WAVE file, copied to WAVE outputs
};

/// Converts metadata to another sample rate. Converts frame counts, or removes and names them.
Metadata atRate(Metadata metadata, std::uint32_t rate, std::uint32_t newRate);

/// Converts metadata for audio that is delayed by a number of frames: moves markers, or removes and names them.
Metadata delayed(Metadata metadata, std::uint32_t frames);

/// Adds the metadata of a WAVE file other than tags: other chunks, and the broadcast extension without material number
/// and loudness, which belong to the stereo.
///
/// descriptor  open for reading; its position does not change
/// file        the same file, opened by libsndfile
/// bigEndian   whether it is RIFX
void addWaveMetadata(Metadata& metadata, int descriptor, SNDFILE* file, bool bigEndian);

/// Adds a note about the chunks of a W64, AIFF or CAF file that are neither audio nor tags.
void addOtherMetadata(Metadata& metadata, int descriptor);

/// Writes the broadcast extension into a WAVE file. Call it before writing audio. Returns whether libsndfile takes it.
bool writeBroadcastInfo(SNDFILE* file, const BroadcastInfo& broadcast);

} // namespace tarn
