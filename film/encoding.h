// The codecs of the upmixed track.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/stream_format.h"
#include "film/av.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// A codec and how a track is encoded with it.
struct Encoding
{
    const char* name;      ///< value of --codec
    const char* encoder;   ///< FFmpeg's name
    std::int64_t bitRate;  ///< of 5.1, kb/s; 0: lossless
    bool sides;            ///< 5.1 has side channels, which this codec's players expect; otherwise back channels
    bool hasDialogueLevel; ///< stores the loudness of dialogue

    /// The format of samples that are encoded: FLAC and PCM hold at most 24 bits.
    StreamFormat formatOf(StreamFormat track) const noexcept
    {
        if (bitRate == 0) track.bits = std::min(track.bits, 24u);
        return track;
    }
};

/// Names of the codecs.
std::vector<std::string> encodingNames();

/// The codec of a name, or the default of a container without one.
///
/// Throws Failure: EX_USAGE if the container cannot hold it, EX_SOFTWARE if FFmpeg has no encoder for it.
const Encoding& encodingFor(const std::string& name, const AVOutputFormat& container, const std::string& output);

/// The lowest rate from a rate on that engine and codec both have; else the highest.
std::uint32_t commonRate(const Encoding& encoding, int rateHz);

} // namespace tarn
