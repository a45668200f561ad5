// The length of the audio data that the headers of audio files declare.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_bytes.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tarn
{

/// Bytes of audio that the header of a file declares, and that the file has.
struct AudioBytes
{
    std::uint64_t declared;
    std::uint64_t present;
    bool isStale; ///< the size is that of an unfinished file: more audio follows, and present includes it
};

/// Reads the size of the audio data from the header of WAVE, RF64, W64, AIFF, AU and CAF files. The decoder does not
/// notice that such a file is cut.
///
/// A recorder that is killed leaves a size of 0 or of an earlier moment. The audio then continues to the end of the
/// file, or to chunks that another program appended. Chunks, tags, text, zeros, other files, and less than 4096 bytes
/// after a declared size are not audio.
///
/// file  a whole file, or one part of a joined file
/// Returns none for other containers, for headers without audio data, and for the placeholder sizes that programs write
/// to pipes.
std::optional<AudioBytes> declaredAudioBytes(const FileBytes& file);

/// Bytes to substitute in a header.
struct Substitution
{
    std::uint64_t position = 0;
    std::string bytes;
};

/// The actual size of the audio data, in the form of the header, if libsndfile would not read the audio to its end: for
/// sizes of unfinished files, for placeholders before other chunks or in files of 4 GiB or more, and for CAF files
/// whose size is unknown or exceeds the file.
std::optional<Substitution> correctedSize(const FileBytes& file);

/// Whether audio follows the audio that the header of a file declares, and no size in the header can include it: in
/// WAVE of 4 GiB or more. libsndfile does not read it.
bool exceedsItsSizes(const FileBytes& file);

/// The start of the next file in a joined WAVE, RF64, W64, AIFF, AU or CAF file: the declared end of the one at begin,
/// or the end of its last chunk. Returns none if no file starts there.
std::optional<std::uint64_t> nextContainer(const FileBytes& file, std::uint64_t begin);

/// The declared position after the audio data of a WAVE, RF64, W64, AIFF, AU or CAF file; none for other files.
std::optional<std::uint64_t> audioEnd(const FileBytes& file);

/// The position after the last chunk of a WAVE, RF64, W64, AIFF, AU or CAF file; none for other files.
std::optional<std::uint64_t> containerEnd(const FileBytes& file);

/// The kind of audio file that begins at a position, as in "a FLAC file"; empty if none does.
std::string fileKindAt(const FileBytes& file, std::uint64_t position);

} // namespace tarn
