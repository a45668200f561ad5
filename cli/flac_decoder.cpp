// Decodes FLAC with libFLAC and replaces damaged frames with silence.
// SPDX-License-Identifier: MIT
#include "cli/flac_decoder.h"

#include "cli/declared_length.h"
#include "cli/text.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

namespace tarn
{

namespace
{

/// Maximum gap to fill; a damaged frame number could declare any length.
constexpr std::uint64_t kMaxGapFrames = std::uint64_t{1} << 22;

} // namespace

FlacDecoder::FlacDecoder(int descriptor, ByteRange part)
    : stream(FileWindow(descriptor, part)), partBytes(descriptor, part), begin(part.begin)
{
    if (!stream.is_valid() || stream.init() != FLAC__STREAM_DECODER_INIT_STATUS_OK)
        throw std::runtime_error("libFLAC cannot decode it");
    readStreamInfo();
    stream.get_decode_position(&frameEnd);
}

FlacDecoder::FlacDecoder(int descriptor, ByteRange part, int serial)
    : stream(FileWindow(descriptor, part)),
      partBytes(descriptor, part),
      begin(part.begin),
      oggEnd(tarn::oggEnd(descriptor, part, serial))
{
    if (!stream.is_valid() || !stream.set_ogg_serial_number(serial) ||
        stream.init_ogg() != FLAC__STREAM_DECODER_INIT_STATUS_OK)
        throw std::runtime_error("libFLAC cannot decode it");
    readStreamInfo();
    facts.format = SF_FORMAT_OGG | (facts.format & SF_FORMAT_SUBMASK);
}

void FlacDecoder::readStreamInfo()
{
    if (!stream.process_until_end_of_metadata() || stream.facts.channels == 0)
        throw std::runtime_error("no stream information in the FLAC file");
    facts = stream.facts;
}

std::size_t FlacDecoder::read(std::int32_t* samples, std::size_t frames)
{
    const auto channels = static_cast<std::size_t>(facts.channels);
    while (toSilence == 0 && used == stream.samples.size())
        if (!decodeFrame()) return 0;
    if (toSilence > 0) {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(toSilence, frames));
        std::fill_n(samples, count * channels, 0);
        toSilence -= count;
        return count;
    }
    const std::size_t count = std::min(frames, (stream.samples.size() - used) / channels);
    std::copy_n(stream.samples.begin() + static_cast<std::ptrdiff_t>(used), count * channels, samples);
    used += count * channels;
    return count;
}

std::size_t FlacDecoder::read(double* samples, std::size_t frames)
{
    std::array<std::int32_t, 4096> integers;
    const std::size_t count =
        read(integers.data(), std::min(frames, integers.size() / static_cast<std::size_t>(facts.channels)));
    for (std::size_t i = 0; i < count * static_cast<std::size_t>(facts.channels); ++i)
        samples[i] = integers[i] * 0x1p-31;
    return count;
}

/// Decodes the next good frame and counts the frames lost before it. Returns whether there is one.
bool FlacDecoder::decodeFrame()
{
    stream.samples.clear();
    used = 0;
    while (stream.samples.empty())
        if (!stream.process_single() || stream.get_state() == FLAC__STREAM_DECODER_END_OF_STREAM) return false;
    stream.get_decode_position(&frameEnd);
    fillGap();
    position += stream.samples.size() / static_cast<std::size_t>(facts.channels);
    return true;
}

/// Replaces the frames that are missing before the last decoded frame by silence, or counts them if they are too many.
void FlacDecoder::fillGap()
{
    const bool isWithin = facts.frames == SF_COUNT_MAX || stream.firstFrame <= static_cast<std::uint64_t>(facts.frames);
    if (stream.firstFrame <= position || !isWithin) return;
    const std::uint64_t gap = stream.firstFrame - position;
    // A recording of a running stream can begin with any number.
    const bool isLateStart = position == 0 && !stream.followsDamage;
    position = stream.firstFrame;
    if (gap <= kMaxGapFrames) {
        toSilence = gap;
        silenced += gap;
    } else if (!isLateStart) {
        skipped += gap;
    }
}

std::string FlacDecoder::error() const
{
    if (stream.window.error() != 0) return systemError(stream.window.error());
    const bool isComplete = facts.frames != SF_COUNT_MAX && position >= static_cast<std::uint64_t>(facts.frames);
    if (isComplete || !isCut()) return {};
    if (oggEnd) return "its last page is missing";
    if (partBytes.skipZeros(frameEnd, partBytes.size()) == partBytes.size()) return "its end is filled with zeros";
    return stream.lostSync ? "the last frames cannot be decoded" : "it ends inside a frame";
}

/// Whether data other than padding, tags and another file follows the last good frame.
bool FlacDecoder::isCut() const
{
    constexpr std::uint64_t kMaxPadding = 65536; ///< more zeros are frames that were never written
    if (oggEnd) return !oggEnd->isMarked;
    const std::uint64_t rest = partBytes.skipZeros(frameEnd, partBytes.size());
    if (rest == partBytes.size()) return rest - frameEnd > kMaxPadding;
    for (const std::string_view mark : {"TAG", "APETAGEX", "ID3"})
        if (partBytes.marks(rest, mark)) return false;
    return fileKindAt(partBytes, rest).empty();
}

FLAC__StreamDecoderReadStatus FlacDecoder::Stream::read_callback(FLAC__byte bytes[], std::size_t* count)
{
    *count = window.read(bytes, *count);
    return *count == 0 ? FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM : FLAC__STREAM_DECODER_READ_STATUS_CONTINUE;
}

FLAC__StreamDecoderTellStatus FlacDecoder::Stream::tell_callback(FLAC__uint64* bytePosition)
{
    *bytePosition = window.position();
    return FLAC__STREAM_DECODER_TELL_STATUS_OK;
}

FLAC__StreamDecoderWriteStatus FlacDecoder::Stream::write_callback(const FLAC__Frame* frame,
                                                                   const FLAC__int32* const channels[])
{
    const FLAC__FrameHeader& header = frame->header;
    // A damaged header can pass its checksum. All frames of a stream have the same channels and rate; those of another
    // stream can follow.
    if (static_cast<int>(header.channels) != facts.channels || header.bits_per_sample > 32 ||
        (frameRate != 0 && header.sample_rate != frameRate))
        return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
    frameRate = header.sample_rate;
    samples.resize(std::size_t{header.blocksize} * header.channels);
    const std::int64_t scale = std::int64_t{1} << (32 - header.bits_per_sample);
    for (std::size_t i = 0; i < header.blocksize; ++i)
        for (std::size_t c = 0; c < header.channels; ++c)
            samples[i * header.channels + c] = static_cast<std::int32_t>(channels[c][i] * scale);
    firstFrame = header.number.sample_number;
    followsDamage = lostSync;
    lostSync = false;
    return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
}

void FlacDecoder::Stream::metadata_callback(const FLAC__StreamMetadata* block)
{
    if (block->type != FLAC__METADATA_TYPE_STREAMINFO) return;
    const FLAC__StreamMetadata_StreamInfo& information = block->data.stream_info;
    facts.samplerate = static_cast<int>(information.sample_rate);
    facts.channels = static_cast<int>(information.channels);
    facts.frames = information.total_samples == 0 ? SF_COUNT_MAX : static_cast<sf_count_t>(information.total_samples);
    const std::uint32_t bits = information.bits_per_sample;
    facts.format = SF_FORMAT_FLAC | (bits <= 8    ? SF_FORMAT_PCM_S8
                                     : bits <= 16 ? SF_FORMAT_PCM_16
                                     : bits <= 24 ? SF_FORMAT_PCM_24
                                                  : SF_FORMAT_PCM_32);
}

void FlacDecoder::Stream::error_callback(FLAC__StreamDecoderErrorStatus /*status*/)
{
    lostSync = true;
}

} // namespace tarn
