// Chooses the decoder for a part of a file.
// SPDX-License-Identifier: MIT
#include "cli/decoder.h"

#include "cli/file_bytes.h"
#include "cli/flac_decoder.h"
#include "cli/mpeg_decoder.h"
#include "cli/mpeg_frames.h"
#include "cli/ogg_pages.h"
#include "cli/opus_decoder.h"
#include "cli/sndfile_decoder.h"
#include "cli/vorbis_decoder.h"

#include <algorithm>
#include <stdexcept>

namespace tarn
{

namespace
{

constexpr const char* kShortMpeg = "it begins like MPEG audio and ends before its first complete frame of audio";

std::unique_ptr<Decoder> openMpeg(int descriptor, ByteRange part)
{
    constexpr std::uint64_t kMinFrames = 2; ///< the first can be an index
    try {
        return std::make_unique<MpegDecoder>(descriptor, part);
    } catch (const std::runtime_error&) {
        if (findMpegDamage(descriptor, part).frames < kMinFrames) throw std::runtime_error(kShortMpeg);
        throw;
    }
}

std::unique_ptr<Decoder> openOgg(int descriptor, ByteRange part)
{
    const OggHead head = oggHead(descriptor, part);
    if (head.codec == OggCodec::Opus) {
        try {
            return std::make_unique<OpusDecoder>(descriptor, part, head.serial);
        } catch (const std::runtime_error&) {
            // libsndfile describes multichannel streams and reports the errors of others.
        }
    }
    if (head.codec == OggCodec::Flac) return std::make_unique<FlacDecoder>(descriptor, part, head.serial);
    auto decoder = std::make_unique<SndfileDecoder>(descriptor, part);
    if (head.codec != OggCodec::Vorbis) return decoder;
    return std::make_unique<VorbisDecoder>(descriptor, part, head.serial, decoder->info());
}

} // namespace

std::unique_ptr<Decoder> openDecoder(int descriptor, ByteRange part)
{
    constexpr std::uint64_t kMaxJunk = 65536; ///< bytes before MPEG audio, such as the rest of a frame
    const FileBytes file(descriptor);
    const std::uint64_t begin = part.begin + file.id3v2Size(part.begin);
    const auto mpegWithin = [&](std::uint64_t bytes) {
        const std::uint64_t limit = std::min(begin + bytes, part.end);
        return nextMpegFrame(file, begin, limit) < limit;
    };
    if (file.marks(begin, "fLaC")) return std::make_unique<FlacDecoder>(descriptor, part);
    if (mpegWithin(begin > part.begin ? kMaxJunk : 1)) return openMpeg(descriptor, part);
    try {
        if (file.marks(begin, "OggS")) return openOgg(descriptor, {.begin = begin, .end = part.end});
        auto decoder = std::make_unique<SndfileDecoder>(descriptor, part);
        const int format = decoder->info().format;
        if ((format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) return openMpeg(descriptor, part);
        return decoder;
    } catch (const std::runtime_error&) {
        if (mpegWithin(kMaxJunk)) return openMpeg(descriptor, part);
        if (mpegFrameAt(file, begin)) throw std::runtime_error(kShortMpeg);
        throw;
    }
}

} // namespace tarn
