// Markers, iXML and cart chunks of WAVE files, and the names of other chunks.
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
    std::vector<Chunk> kept;          ///< the first iXML, cart (AES46), cue, list of labels (LIST adtl) and smpl
    std::vector<std::string> leftOut; ///< names of all others and bext, without tags and format chunks
    std::vector<std::string> invalid; ///< names of those that do not have the form of their kind
};

/// Reads the chunks of a WAVE file. Removes the iXML elements TRACK_LIST, LOUDNESS, BEXT and FILE_UID, which describe
/// the stereo file.
///
/// descriptor  open for reading; its position does not change
/// bigEndian   whether it is RIFX
WaveChunks readWaveChunks(int descriptor, bool bigEndian);

/// Names of the chunks of a W64, AIFF or CAF file that are neither audio nor tags.
std::vector<std::string> otherChunkNames(int descriptor);

/// Whether a chunk has markers, which count frames of the input.
bool hasMarkers(const Chunk& chunk);

/// The name of a chunk without spaces; with the type of a list: "LIST adtl".
std::string printedName(const Chunk& chunk);

/// Converts the frame counts of a cart chunk to another sample rate.
///
/// Returns the elements of an iXML chunk that cannot be converted and were removed.
std::vector<std::string> convertRate(Chunk& chunk, std::uint32_t rate, std::uint32_t newRate);

/// Adds a delay to the cue points, loops and timers of a chunk that readWaveChunks kept.
void delayMarkers(Chunk& chunk, std::uint32_t frames);

} // namespace tarn
