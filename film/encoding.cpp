// The codecs of the upmixed track.
// SPDX-License-Identifier: MIT
#include "film/encoding.h"

#include "stream/stream_types.h"

#include <algorithm>
#include <iterator>

namespace tarn
{

namespace
{

constexpr Encoding kEncodings[] = {
    {.name = "flac", .encoder = "flac", .bitRate = 0, .sides = false, .hasDialogueLevel = false},
    {.name = "ac3", .encoder = "ac3", .bitRate = 448, .sides = true, .hasDialogueLevel = true},
    {.name = "eac3", .encoder = "eac3", .bitRate = 640, .sides = true, .hasDialogueLevel = true},
    {.name = "aac", .encoder = "aac", .bitRate = 512, .sides = false, .hasDialogueLevel = false},
    {.name = "opus", .encoder = "libopus", .bitRate = 384, .sides = false, .hasDialogueLevel = false},
    {.name = "pcm", .encoder = "pcm_s24le", .bitRate = 0, .sides = false, .hasDialogueLevel = false},
};

const AVCodec* encoderOf(const Encoding& encoding)
{
    return avcodec_find_encoder_by_name(encoding.encoder);
}

bool isStorable(const Encoding& encoding, const AVOutputFormat& container)
{
    const AVCodec* const encoder = encoderOf(encoding);
    return encoder != nullptr && avformat_query_codec(&container, encoder->id, FF_COMPLIANCE_NORMAL) == 1;
}

} // namespace

std::vector<std::string> encodingNames()
{
    std::vector<std::string> names;
    for (const Encoding& encoding : kEncodings) names.emplace_back(encoding.name);
    return names;
}

const Encoding& encodingFor(const std::string& name, const AVOutputFormat& container, const std::string& output)
{
    // MP4 can hold FLAC, but few players read it from there.
    const bool isMp4 = container.codec_tag != nullptr && avformat_query_codec(&container, AV_CODEC_ID_MOV_TEXT, 0) == 1;
    const std::string wanted = !name.empty() ? name : isMp4 ? "aac" : "flac";
    const auto* const found = std::find_if(std::begin(kEncodings), std::end(kEncodings),
                                           [&](const Encoding& encoding) { return wanted == encoding.name; });
    if (found == std::end(kEncodings)) throw Failure(EX_USAGE, "--codec " + name + ": no such codec");
    if (encoderOf(*found) == nullptr)
        throw Failure(EX_SOFTWARE, "--codec " + wanted + ": this FFmpeg has no encoder " + found->encoder +
                                       "; choose another codec");
    if (!isStorable(*found, container)) {
        std::string others;
        for (const Encoding& encoding : kEncodings)
            if (isStorable(encoding, container)) others += (others.empty() ? "" : ", ") + std::string(encoding.name);
        throw Failure(EX_USAGE, output + ": this kind of file cannot hold " + wanted + "; it can hold " + others);
    }
    return *found;
}

std::uint32_t commonRate(const Encoding& encoding, int rateHz)
{
    const int* const supported = encoderOf(encoding)->supported_samplerates;
    const auto isSupported = [supported](std::uint32_t rate) {
        if (supported == nullptr) return true;
        for (const int* entry = supported; *entry != 0; ++entry)
            if (*entry == static_cast<int>(rate)) return true;
        return false;
    };
    std::uint32_t highest = 0;
    for (const std::uint32_t rate : zrk_tarn::kSampleRatesHz) {
        if (!isSupported(rate)) continue;
        highest = rate;
        if (static_cast<int>(rate) >= rateHz) break;
    }
    return highest;
}

} // namespace tarn
