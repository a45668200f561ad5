// iXML and cart chunks of WAVE files.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/chunks.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// Chunks of a WAVE file that describe its recording, except tags and the broadcast extension.
struct WaveChunks
{
    std::vector<Chunk> kept;          ///< the first iXML and the first cart (AES46)
    std::vector<std::string> leftOut; ///< names of all others and bext, without tags and format chunks
};

/// Reads the chunks of a WAVE file. Removes the iXML elements TRACK_LIST, LOUDNESS, BEXT and FILE_UID, which describe
/// the stereo file.
///
/// descriptor  open for reading; its position does not change
/// bigEndian   whether it is RIFX
WaveChunks readWaveChunks(int descriptor, bool bigEndian);

/// Converts the frame counts of a chunk to another sample rate.
///
/// Returns the iXML elements that cannot be converted and were removed.
std::vector<std::string> convertRate(Chunk& chunk, std::uint32_t rate, std::uint32_t newRate);

} // namespace tarn
