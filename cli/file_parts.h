// The parts of an audio file, their lengths and their damage.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/byte_range.h"
#include "cli/decoder.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// One of the streams that were joined into a file.
struct FilePart
{
    ByteRange bytes;
    std::optional<std::uint64_t> declared;      ///< frames
    int rate = 0;                               ///< Hz
    std::string difference{};                   ///< from the first part, as a predicate; empty if the part is read
    bool hasDamagedPages = false;               ///< Ogg pages that libsndfile skips
    bool lacksEnd = false;                      ///< the end-of-stream mark is missing
    bool endsInsideFrame = false;               ///< the last MPEG frame is incomplete
    std::uint64_t skippedFrames = 0;            ///< of damaged MPEG frames, per channel
    std::optional<std::uint64_t> damageBegin{}; ///< frame of the first damaged MPEG frame
    std::string note{};                         ///< about values that the header declares wrongly
    std::uint64_t end = 0;                      ///< position in the file after the audio and its chunks; 0 if unknown
};

/// The parts of a file; at least one.
struct FileParts
{
    std::vector<FilePart> parts;
    std::unique_ptr<Decoder> first; ///< decoder of the first part
};

/// Finds the parts of a file.
///
/// descriptor  open for reading; must outlive the decoder
/// Throws std::runtime_error with the reason if the first part contains no audio.
FileParts findParts(int descriptor, std::uint64_t fileBytes);

} // namespace tarn
