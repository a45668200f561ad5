#pragma once

#include "cli/chunks.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// Chunks of a WAVE file that describe its recording, beside tags and the broadcast extension.
struct WaveChunks
{
    std::vector<Chunk> kept;          ///< the first iXML and the first cart (AES46)
    std::vector<std::string> leftOut; ///< names of others, and bext; without tags and what describes the file itself
};

/// Reads the chunks of a WAVE file. The elements TRACK_LIST, LOUDNESS, BEXT and FILE_UID of iXML describe the stereo
/// file and are removed.
///
/// descriptor  open for reading; its position stays where it is
/// bigEndian   whether it is RIFX
WaveChunks readWaveChunks(int descriptor, bool bigEndian);

/// Converts what a chunk counts in frames to another sample rate.
///
/// Returns the elements of iXML that cannot be converted and are removed.
std::vector<std::string> convertRate(Chunk& chunk, std::uint32_t rate, std::uint32_t newRate);

} // namespace tarn
