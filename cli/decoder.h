#pragma once

#include "cli/byte_range.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <sndfile.h>

namespace tarn
{

/// Audio in a part of a file.
class Decoder
{
public:
    virtual ~Decoder() = default;

    /// Rate, channels, format in the numbers of libsndfile, and frames: SF_COUNT_MAX if they are not known.
    const SF_INFO& info() const noexcept { return facts; }

    /// Reads interleaved frames as left-justified samples, from formats with integer samples; others give none.
    ///
    /// Returns how many; 0 at the end and where decoding fails.
    virtual std::size_t read(std::int32_t* /*samples*/, std::size_t /*frames*/) { return 0; }

    /// Reads interleaved frames in units of full scale. Returns how many; 0 at the end and where decoding fails.
    virtual std::size_t read(double* samples, std::size_t frames) = 0;

    /// Frames read so far that could not be decoded and were read as silence.
    virtual std::uint64_t silencedFrames() const { return 0; }

    /// Why decoding ended before the end of the part, in a few words; empty if it did not, as far as the decoder can
    /// tell.
    virtual std::string error() const = 0;

protected:
    SF_INFO facts{};
};

/// Opens a part of a file with libFLAC, libmpg123, libopus, libvorbis or libsndfile.
///
/// descriptor  stays open as long as the decoder; its position neither matters nor moves
/// Throws std::runtime_error with the reason if the part holds no audio.
std::unique_ptr<Decoder> openDecoder(int descriptor, ByteRange part);

} // namespace tarn
