#pragma once

#include "cli/chunks.h"

#include <cstdint>
#include <string>
#include <vector>

#include <sndfile.h>

namespace tarn
{

/// Chunks of a WAVE file that describe its recording, beside tags and the broadcast extension.
struct WaveChunks
{
    std::vector<Chunk> kept;          ///< iXML and cart (AES46)
    std::vector<std::string> leftOut; ///< names of others, and bext; without tags and what describes the file itself
};

/// Reads the chunks of a WAVE file. The elements TRACK_LIST, LOUDNESS, BEXT and FILE_UID of iXML describe the stereo
/// file and are removed.
///
/// file       as libsndfile has opened it
/// fileSize   in bytes
/// bigEndian  whether it is RIFX
WaveChunks readWaveChunks(SNDFILE* file, std::uint64_t fileSize, bool bigEndian);

/// Converts what a chunk counts in frames to another sample rate.
///
/// Returns the elements of iXML that cannot be converted and are removed.
std::vector<std::string> convertRate(Chunk& chunk, std::uint32_t rate, std::uint32_t newRate);

} // namespace tarn
