// Decodes MPEG audio with libmpg123.
// SPDX-License-Identifier: MIT
#include "cli/mpeg_decoder.h"

#include "cli/mpeg_frames.h"
#include "cli/mpeg_index.h"
#include "cli/quiet_standard_error.h"
#include "cli/text.h"

#include <algorithm>
#include <stdexcept>

namespace tarn
{

namespace
{

ssize_t readWindow(void* window, void* to, std::size_t count)
{
    return static_cast<ssize_t>(static_cast<FileWindow*>(window)->read(to, count));
}

off_t seekWindow(void* window, off_t offset, int whence)
{
    return static_cast<FileWindow*>(window)->seek(offset, whence);
}

/// The part without the tags at its end, which libmpg123 would read as the rest of a cut frame.
ByteRange withoutTags(int descriptor, ByteRange part)
{
    return {.begin = part.begin, .end = part.begin + mpegAudioEnd(FileBytes(descriptor, part))};
}

} // namespace

MpegDecoder::MpegDecoder(int descriptor, ByteRange part)
    : window(descriptor, withoutTags(descriptor, part)), handle(mpg123_new(nullptr, nullptr))
{
    const QuietStandardError quiet; // libmpg123 prints some errors despite MPG123_QUIET
    mpg123_handle* const mpeg = handle.get();
    const auto index = firstMpegIndex(FileBytes(descriptor, part));
    hasIndex = index && index->frames > 0;
    if (const auto repair = repairMpegIndex(descriptor, part)) {
        window.replace(repair->position, repair->bytes);
        hasIndex = !repair->bytes.empty();
        indexNote = repair->note;
    }
    if (mpeg == nullptr) throw std::bad_alloc();
    mpg123_param(mpeg, MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_GAPLESS | MPG123_FORCE_FLOAT | MPG123_SKIP_ID3V2, 0.0);
    mpg123_param(mpeg, MPG123_REMOVE_FLAGS, MPG123_AUTO_RESAMPLE, 0.0);
    mpg123_param(mpeg, MPG123_RESYNC_LIMIT, -1, 0.0);
    mpg123_replace_reader_handle(mpeg, readWindow, seekWindow, nullptr);

    long rate = 0;
    int encoding = 0;
    if (mpg123_open_handle(mpeg, &window) != MPG123_OK ||
        mpg123_getformat(mpeg, &rate, &facts.channels, &encoding) != MPG123_OK || encoding != MPG123_ENC_FLOAT_32)
        throw std::runtime_error(mpg123_strerror(mpeg));
    // A damaged header can declare any format. An unsupported one would end the stream.
    const long* rates = nullptr;
    std::size_t count = 0;
    mpg123_rates(&rates, &count);
    mpg123_format_none(mpeg);
    for (std::size_t i = 0; i < count; ++i)
        mpg123_format(mpeg, rates[i], facts.channels == 1 ? MPG123_MONO : MPG123_STEREO, encoding);

    mpg123_frameinfo frame{};
    mpg123_info(mpeg, &frame);
    facts.samplerate = static_cast<int>(rate);
    facts.format = SF_FORMAT_MPEG | (frame.layer == 1   ? SF_FORMAT_MPEG_LAYER_I
                                     : frame.layer == 2 ? SF_FORMAT_MPEG_LAYER_II
                                                        : SF_FORMAT_MPEG_LAYER_III);
    const off_t frames = mpg123_length(mpeg);
    facts.frames = frames < 0 ? SF_COUNT_MAX : frames;
    hasIndex = hasIndex && frames >= 0;
}

std::size_t MpegDecoder::read(double* samples, std::size_t frames)
{
    const QuietStandardError quiet;
    const auto channels = static_cast<std::size_t>(facts.channels);
    decoded.resize(frames * channels);
    std::size_t bytes = 0;
    int result = MPG123_NEW_FORMAT;
    while (bytes == 0 && result == MPG123_NEW_FORMAT) {
        result = mpg123_read(handle.get(), decoded.data(), decoded.size() * sizeof(float), &bytes);
        if (result == MPG123_NEW_FORMAT) hasBadFrames = hasBadFrames || hasOtherRate();
    }
    hasBadFrames = hasBadFrames || (result != MPG123_OK && result != MPG123_DONE && result != MPG123_NEW_FORMAT);
    const std::size_t count = bytes / sizeof(float) / channels;
    std::copy_n(decoded.begin(), count * channels, samples);
    return count;
}

/// Whether the last frame declares another sample rate than the first.
bool MpegDecoder::hasOtherRate() const
{
    long rate = 0;
    int channels = 0;
    int encoding = 0;
    mpg123_getformat(handle.get(), &rate, &channels, &encoding);
    return rate != facts.samplerate;
}

std::string MpegDecoder::error() const
{
    if (window.error() != 0) return systemError(window.error());
    return hasBadFrames ? "some of its frames are damaged" : std::string();
}

} // namespace tarn
