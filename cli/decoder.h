// The interface of all audio decoders.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/byte_range.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <sndfile.h>

namespace tarn
{

/// Decodes the audio in a part of a file.
class Decoder
{
public:
    virtual ~Decoder() = default;

    /// Rate, channels, format code of libsndfile, and frames: SF_COUNT_MAX if unknown.
    const SF_INFO& info() const noexcept { return facts; }

    /// Reads interleaved frames as left-justified samples. Only formats with integer samples support this.
    ///
    /// Returns the number of frames; 0 at the end and after an error.
    virtual std::size_t read(std::int32_t* /*samples*/, std::size_t /*frames*/) { return 0; }

    /// Reads interleaved frames, full scale 1. Returns the number of frames; 0 at the end and after an error.
    virtual std::size_t read(double* samples, std::size_t frames) = 0;

    /// Frames read so far that could not be decoded and became silence.
    virtual std::uint64_t silencedFrames() const { return 0; }

    /// Frames before the last frame read that could not be decoded and are left out.
    virtual std::uint64_t skippedFrames() const { return 0; }

    /// Position in the file after the decoded audio, valid at the end; 0 if unknown.
    virtual std::uint64_t endPosition() const { return 0; }

    /// What the header declares wrongly, as a clause; empty if nothing.
    virtual std::string note() const { return {}; }

    /// Whether the part was decoded without another error and its samples do not match a checksum of all samples. Valid
    /// at the end.
    virtual bool hasWrongChecksum() const { return false; }

    /// The reason if decoding ended before the end of the part, in a few words; empty if the decoder found no error.
    virtual std::string error() const = 0;

protected:
    SF_INFO facts{};
};

/// Opens a part of a file with libFLAC, libmpg123, libopus, libvorbis or libsndfile.
///
/// descriptor  must outlive the decoder; its position is not used
/// Throws std::runtime_error with the reason if the part contains no audio.
std::unique_ptr<Decoder> openDecoder(int descriptor, ByteRange part);

} // namespace tarn
