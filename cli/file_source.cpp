// Reads all parts of an audio file as stereo and reports what is missing.
// SPDX-License-Identifier: MIT
#include "cli/file_source.h"

#include "cli/decibels.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/sample_formats.h"
#include "cli/sndfile_decoder.h"
#include "cli/text.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace tarn
{

namespace
{

constexpr std::size_t kChannels = 2;
constexpr std::size_t kScanFrames = 4096;

/// Copies mono to both channels in place, from the last frame to the first.
template <typename Sample>
void spreadMono(Sample* samples, std::size_t frames) noexcept
{
    for (std::size_t i = frames; i > 0; --i) samples[2 * i - 1] = samples[2 * i - 2] = samples[i - 1];
}

} // namespace

FileSource::FileSource(const std::string& path, Accept accept) : file(openInput(path))
{
    try {
        openParts();
    } catch (const std::runtime_error& error) {
        throwIfInterrupted(); // a decoder reports the end of the file
        throw Failure(EX_DATAERR,
                      file.name + ": is not an audio file that can be read (" + error.what() + "); " +
                          (file.fromPipe ? "check the command before the pipe, or add --raw RATE:BITS for raw PCM"
                                         : "check where it comes from, or convert it, for example: ffmpeg -i " +
                                               shellQuoted(path) + " converted.wav"));
    }
    if (accept == Accept::Upmixable) checkFormat();
}

/// Finds the parts of the file and opens the first one.
void FileSource::openParts()
{
    FileParts found = findParts(file.descriptor.number(), file.bytes);
    parts = std::move(found.parts);
    decoder = std::move(found.first);
    info = decoder->info();
    compressed = dynamic_cast<const SndfileDecoder*>(decoder.get()) == nullptr;

    std::uint64_t sum = 0;
    bool allDeclared = true;
    for (const FilePart& part : parts) {
        sum += part.declared.value_or(0);
        allDeclared = allDeclared && part.declared;
    }
    if (allDeclared) declared = sum;
    expected = declared;
    if (!expected && parts.size() == 1 && info.frames != SF_COUNT_MAX)
        expected = static_cast<std::uint64_t>(info.frames);
}

void FileSource::checkFormat() const
{
    if (info.channels != 1 && info.channels != 2)
        throw Failure(EX_DATAERR,
                      file.name + ": has " + std::to_string(info.channels) +
                          " channels and is multichannel already; only mono and stereo can be upmixed. Mix "
                          "it down " +
                          (file.fromPipe ? "before the pipe, with the option -ac 2 of ffmpeg"
                                         : "with: ffmpeg -i " + shellQuoted(file.name) + " -ac 2 stereo.wav"));
    if (!isConvertibleRate(static_cast<std::uint32_t>(std::max(info.samplerate, 0))))
        throw Failure(EX_DATAERR, file.name + ": has a sample rate of " + std::to_string(info.samplerate) +
                                      " Hz, and " + convertibleRates() +
                                      " can be upmixed; its header is damaged, or it is not sound");
}

FileFacts FileSource::facts() const
{
    const bool isOggFlac = isOgg(info) && integerBits(info.format) != 0;
    return {.container = formatName(info.format & SF_FORMAT_TYPEMASK),
            .codec = isOggFlac ? "FLAC" : formatName(info.format & SF_FORMAT_SUBMASK),
            .sampleRate = static_cast<std::uint32_t>(info.samplerate),
            .bits = integerBits(info.format),
            .channels = static_cast<std::uint32_t>(info.channels),
            .frames = declared};
}

Metadata FileSource::metadata()
{
    const auto* const opened = dynamic_cast<const SndfileDecoder*>(decoder.get());
    SNDFILE* const sndfile = opened != nullptr ? opened->handle() : nullptr;
    Metadata metadata{.tags = readTags(file.descriptor.number(), sndfile, info.format), .broadcast = {}, .chunks = {}};
    const int container = info.format & SF_FORMAT_TYPEMASK;
    if (container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX || container == SF_FORMAT_RF64)
        addWaveMetadata(metadata, file.descriptor.number(), sndfile,
                        (info.format & SF_FORMAT_ENDMASK) == SF_ENDIAN_BIG);
    if (container == SF_FORMAT_W64 || container == SF_FORMAT_AIFF || container == SF_FORMAT_CAF)
        addOtherMetadata(metadata, file.descriptor.number());
    return metadata;
}

void FileSource::rewind()
{
    position = partBegin = 0;
    losses = {};
    openPart(0);
}

void FileSource::openPart(std::size_t index)
{
    for (current = index; current < parts.size() && !parts[current].difference.empty(); ++current) recordUnreadPart();
    partBegin = position;
    errorBegin.reset();
    if (current < parts.size()) decoder = openDecoder(file.descriptor.number(), parts[current].bytes);
}

StreamFormat FileSource::format() const noexcept
{
    constexpr std::uint32_t kLossyWidth = 24;
    const std::uint32_t own = integerBits(info.format);
    std::uint32_t bits = kLossyWidth;
    if (own != 0) bits = *std::find_if(kWidths.begin(), kWidths.end(), [own](std::uint32_t w) { return w >= own; });
    return {.sampleRate = static_cast<std::uint32_t>(info.samplerate), .bits = bits};
}

std::vector<std::string> FileSource::readingNotes() const
{
    std::vector<std::string> notes;
    for (const FilePart& part : parts)
        if (!part.note.empty()) notes.push_back(part.note);
    return notes;
}

bool FileSource::canExceedFullScale() const noexcept
{
    return integerBits(info.format) == 0;
}

std::vector<std::string> FileSource::prepare(bool showProgress, PeakPlan plan)
{
    std::vector<std::string> notes = readingNotes();
    if (info.channels == 1) notes.emplace_back("mono, which is read as equal left and right");
    if (!canExceedFullScale()) return notes;
    if (plan.keep) {
        headroom = kHeadroomBits;
        return notes;
    }
    if (plan.sharedPeak) {
        fileScale = 1.0 / std::max(*plan.sharedPeak, 1.0);
        return notes;
    }

    watchesPeak = plan.canStartOver;
    if (watchesPeak) return notes;

    findPeak(showProgress);
    expected = position;
    rewind();
    if (peak <= 1.0) return notes;

    fileScale = 1.0 / peak;
    const std::string excess = formatted("%.2f dB", decibels(peak));
    notes.push_back("peak +" + excess + " above full scale: scaled down by " + excess);
    return notes;
}

/// Finds the peak from the current frame to the end. The frames before are not above full scale.
void FileSource::findPeak(bool showProgress)
{
    Progress progress("finding the peak", expected, format().sampleRate, showProgress);
    progress.advance(position);
    std::vector<double> stereo(kScanFrames * kChannels);
    while (const std::size_t frames = readFullScale(stereo.data(), kScanFrames)) {
        throwIfInterrupted();
        for (std::size_t i = 0; i < frames * kChannels; ++i) peak = std::max(peak, std::abs(stereo[i]));
        progress.advance(frames);
    }
}

std::size_t FileSource::readFullScale(double* stereo, std::size_t capacity)
{
    const std::size_t frames = decode(stereo, capacity);
    for (std::size_t i = 0; i < frames * kChannels; ++i)
        if (!std::isfinite(stereo[i]))
            throw Failure(EX_DATAERR, file.name + ": frame " + std::to_string(position - frames + i / kChannels) +
                                          " has a sample that is infinite or not a number; render the file again");
    return frames;
}

/// Reads frames of the current part, or of the next part with audio.
template <typename Sample>
std::size_t FileSource::decode(Sample* stereo, std::size_t capacity)
{
    while (current < parts.size()) {
        const std::size_t frames = decoder->read(stereo, capacity);
        // The FLAC decoder reports errors only at its end.
        const bool isDamaged = decoder->silencedFrames() + decoder->skippedFrames() > 0;
        if (isDamaged) losses.markDamage(position);
        if (isMpeg(info) && !errorBegin && !decoder->error().empty()) errorBegin = position;
        position += frames;
        if (frames > 0) {
            if (info.channels == 1) spreadMono(stereo, frames);
            return frames;
        }
        endPart();
        openPart(current + 1);
    }
    return 0;
}

std::size_t FileSource::read(std::int32_t* stereo, std::size_t capacity)
{
    if (!canExceedFullScale()) return decode(stereo, capacity);
    constexpr double kRounding = 0x1p-40; // of the scale
    const double factor = std::ldexp(fileScale, -headroom);
    decoded.resize(capacity * kChannels);
    const std::size_t frames = readFullScale(decoded.data(), capacity);
    if (watchesPeak) {
        for (std::size_t i = 0; i < frames * kChannels; ++i) peak = std::max(peak, std::abs(decoded[i]));
        if (peak > 1.0) throw AboveFullScale{};
    }
    for (std::size_t i = 0; i < frames * kChannels; ++i) {
        const double sample = decoded[i] * factor;
        if (std::abs(sample) > 1.0 + kRounding) ++clipped;
        stereo[i] = fromFullScale(sample);
    }
    return frames;
}

} // namespace tarn
