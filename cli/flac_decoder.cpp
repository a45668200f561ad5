// Decodes FLAC with libFLAC and replaces damaged frames with silence.
// SPDX-License-Identifier: MIT
#include "cli/flac_decoder.h"

#include "cli/declared_length.h"
#include "cli/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <string_view>

namespace tarn
{

namespace
{

/// Maximum gap to fill; a damaged frame number could declare any length.
constexpr std::uint64_t kMaxGapFrames = std::uint64_t{1} << 22;

int sampleFormat(std::uint32_t bits)
{
    return bits <= 8    ? SF_FORMAT_PCM_S8
           : bits <= 16 ? SF_FORMAT_PCM_16
           : bits <= 24 ? SF_FORMAT_PCM_24
                        : SF_FORMAT_PCM_32;
}

/// The values that the header declares wrongly; empty if it agrees with the first frame.
std::string differenceOf(const SF_INFO& header, std::uint32_t headerBits, const SF_INFO& frame, std::uint32_t frameBits)
{
    std::string wrong;
    const auto compare = [&wrong](std::int64_t declared, std::int64_t actual, const char* unit) {
        if (declared == actual) return;
        wrong += (wrong.empty() ? "" : ", ") + std::to_string(declared) + unit + " instead of " +
                 std::to_string(actual) + unit;
    };
    compare(header.samplerate, frame.samplerate, " Hz");
    compare(header.channels, frame.channels, " channels");
    compare(headerBits, frameBits, " bits");
    return wrong.empty() ? wrong : "its header declares " + wrong + "; the values of its frames are used";
}

} // namespace

FlacDecoder::FlacDecoder(int descriptor, ByteRange part)
    : stream(FileWindow(descriptor, part), false), partBytes(descriptor, part), begin(part.begin)
{
    if (!stream.is_valid() || !stream.set_md5_checking(true) || stream.init() != FLAC__STREAM_DECODER_INIT_STATUS_OK)
        throw std::runtime_error("libFLAC cannot decode it");
    readFormat();
}

FlacDecoder::FlacDecoder(int descriptor, ByteRange part, int serial)
    : stream(FileWindow(descriptor, part), true),
      partBytes(descriptor, part),
      begin(part.begin),
      oggEnd(tarn::oggEnd(descriptor, part, serial))
{
    if (!stream.is_valid() || !stream.set_md5_checking(true) || !stream.set_ogg_serial_number(serial) ||
        stream.init_ogg() != FLAC__STREAM_DECODER_INIT_STATUS_OK)
        throw std::runtime_error("libFLAC cannot decode it");
    readFormat();
    facts.format = SF_FORMAT_OGG | (facts.format & SF_FORMAT_SUBMASK);
}

/// Reads the metadata blocks and the first good frame.
void FlacDecoder::readFormat()
{
    if (!stream.process_until_end_of_metadata() || stream.facts.channels == 0)
        throw std::runtime_error("no stream information in the FLAC file");
    stream.get_decode_position(&frameEnd);
    const SF_INFO header = stream.facts;
    const std::uint32_t headerBits = stream.bits;
    isFirstReady = stream.decodeFrame();
    used = stream.samples.size();
    facts = stream.facts;
    headerNote = differenceOf(header, headerBits, facts, stream.bits);
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

/// Takes the next good frame and counts the frames lost before it. Returns whether there is one.
bool FlacDecoder::decodeFrame()
{
    const bool hasFrame = isFirstReady || stream.decodeFrame();
    isFirstReady = false;
    used = 0;
    if (!hasFrame) {
        finish();
        return false;
    }
    isJoined = isJoined || (stream.followsDamage && isFollowedByFile());
    stream.get_decode_position(&frameEnd);
    fillGap();
    const std::size_t frames = stream.samples.size() / static_cast<std::size_t>(facts.channels);
    if (stream.isHidden) silenced += frames;
    position += frames;
    return true;
}

/// Compares the checksum of all samples.
void FlacDecoder::finish()
{
    // libFLAC includes the frames of a following FLAC file.
    isJoined = isJoined || isFollowedByFile();
    if (stream.get_state() == FLAC__STREAM_DECODER_END_OF_STREAM && !stream.finish()) isChecksumWrong = true;
}

/// Whether another file follows the last good frame.
bool FlacDecoder::isFollowedByFile() const
{
    return !oggEnd && !fileKindAt(partBytes, frameEnd).empty();
}

bool FlacDecoder::hasWrongChecksum() const
{
    const bool hasMissing = facts.frames != SF_COUNT_MAX && position < static_cast<std::uint64_t>(facts.frames);
    const bool isKnownLoss = silenced > 0 || skipped > 0 || hasMissing || !error().empty();
    return isChecksumWrong && !isKnownLoss && !isJoined;
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
    return stream.lostSync && !stream.isCutFrame ? "the last frames cannot be decoded" : "it ends inside a frame";
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

/// Decodes the next good frame. Returns whether there is one.
bool FlacDecoder::Stream::decodeFrame()
{
    FLAC__uint64 from = 0;
    const bool isKnown = get_decode_position(&from); // not in Ogg
    if (!decodeOnce()) return false;
    isHidden = false;
    if (delivered == 1) return true;
    // libFLAC 1.4.2 fills a gap with frames of silence, and then delivers silence for the good frame too. After a
    // flush, it does not know of the gap.
    if (isKnown && window.seek(static_cast<std::int64_t>(from), SEEK_SET) >= 0 && flush()) return decodeOnce();
    isHidden = std::ranges::all_of(samples, [](std::int32_t sample) { return sample == 0; });
    return true;
}

/// Lets libFLAC decode until it delivers frames. The last one is kept.
bool FlacDecoder::Stream::decodeOnce()
{
    samples.clear();
    delivered = 0;
    reachedEnd = false;
    // cppcheck-suppress knownConditionTrueFalse ; process_single fills them
    while (samples.empty())
        if (!process_single() || get_state() == FLAC__STREAM_DECODER_END_OF_STREAM) return false;
    followsDamage = lostSync;
    lostSync = false;
    return true;
}

FLAC__StreamDecoderReadStatus FlacDecoder::Stream::read_callback(FLAC__byte bytes[], std::size_t* count)
{
    *count = window.read(bytes, *count);
    reachedEnd = reachedEnd || *count == 0;
    return *count == 0 ? FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM : FLAC__STREAM_DECODER_READ_STATUS_CONTINUE;
}

FLAC__StreamDecoderTellStatus FlacDecoder::Stream::tell_callback(FLAC__uint64* bytePosition)
{
    *bytePosition = window.position();
    return FLAC__STREAM_DECODER_TELL_STATUS_OK;
}

/// libFLAC returns to the end of the last header after a damaged frame. It does not know positions in Ogg.
FLAC__StreamDecoderSeekStatus FlacDecoder::Stream::seek_callback(FLAC__uint64 bytePosition)
{
    if (isOgg) return FLAC__STREAM_DECODER_SEEK_STATUS_UNSUPPORTED;
    return window.seek(static_cast<std::int64_t>(bytePosition), SEEK_SET) >= 0 ? FLAC__STREAM_DECODER_SEEK_STATUS_OK
                                                                               : FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
}

FLAC__StreamDecoderWriteStatus FlacDecoder::Stream::write_callback(const FLAC__Frame* frame,
                                                                   const FLAC__int32* const channels[])
{
    const FLAC__FrameHeader& header = frame->header;
    if (header.bits_per_sample > 32) return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
    if (!hasFrame) setFormat(header.sample_rate, header.channels, header.bits_per_sample);
    hasFrame = true;
    // All frames of a stream have the same channels and rate; those of another stream can follow.
    if (static_cast<int>(header.channels) != facts.channels || static_cast<int>(header.sample_rate) != facts.samplerate)
        return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
    const std::size_t frames = header.blocksize;
    const std::size_t slots = header.channels;
    const std::int64_t scale = std::int64_t{1} << (32 - header.bits_per_sample);
    samples.resize(frames * slots);
    for (std::size_t c = 0; c < slots; ++c) {
        std::int32_t* const slot = samples.data() + c;
        const FLAC__int32* const channel = channels[c];
        for (std::size_t i = 0; i < frames; ++i) slot[i * slots] = static_cast<std::int32_t>(channel[i] * scale);
    }
    firstFrame = header.number.sample_number;
    ++delivered;
    return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
}

void FlacDecoder::Stream::metadata_callback(const FLAC__StreamMetadata* block)
{
    if (block->type != FLAC__METADATA_TYPE_STREAMINFO) return;
    const FLAC__StreamMetadata_StreamInfo& information = block->data.stream_info;
    setFormat(information.sample_rate, information.channels, information.bits_per_sample);
    facts.frames = information.total_samples == 0 ? SF_COUNT_MAX : static_cast<sf_count_t>(information.total_samples);
}

void FlacDecoder::Stream::setFormat(std::uint32_t rate, std::uint32_t channels, std::uint32_t sampleBits)
{
    facts.samplerate = static_cast<int>(rate);
    facts.channels = static_cast<int>(channels);
    facts.format = SF_FORMAT_FLAC | sampleFormat(sampleBits);
    bits = sampleBits;
}

void FlacDecoder::Stream::error_callback(FLAC__StreamDecoderErrorStatus /*status*/)
{
    if (!lostSync) isCutFrame = reachedEnd;
    lostSync = true;
}

} // namespace tarn
