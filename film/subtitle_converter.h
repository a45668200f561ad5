// Converts subtitles of text for MP4.
// SPDX-License-Identifier: MIT
#pragma once

#include "film/av.h"

#include <functional>
#include <string>
#include <vector>

namespace tarn
{

/// Converts packets of SubRip, ASS and WebVTT into those of MP4's timed text. Fonts and positions are lost.
class SubtitleConverter
{
public:
    /// Whether FFmpeg can convert a codec.
    static bool canConvert(AVCodecID codec) noexcept;

    /// film  name of the output, for messages
    SubtitleConverter(const std::string& film, const AVStream& from);

    const AVCodecContext& codec() const noexcept { return *encoder; }

    /// Replaces a packet by the converted one. Returns false if it has no text.
    bool convert(AVPacket& packet);

private:
    std::string name;
    Codec decoder;
    Codec encoder;
    std::vector<std::uint8_t> text;
};

} // namespace tarn
