// Reads all parts of an audio file as stereo and reports what is missing.
// SPDX-License-Identifier: MIT
#include "cli/file_source.h"

#include "cli/decibels.h"
#include "cli/declared_length.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/joined_streams.h"
#include "cli/progress.h"
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

/// Sample width of an integer format; 0 for floating-point and lossy formats.
std::uint32_t integerBits(int format) noexcept
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        return 8;
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ALAC_16:
        return 16;
    case SF_FORMAT_ALAC_20:
        return 20;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_24:
        return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
        return 32;
    default:
        return 0;
    }
}

/// Bytes of a sample in the file; 0 for compressed formats.
std::uint64_t storedBytes(int format) noexcept
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_FLOAT:
        return 4;
    case SF_FORMAT_DOUBLE:
        return 8;
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
        return 1;
    case SF_FORMAT_ALAC_16:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
    case SF_FORMAT_ALAC_32:
        return 0;
    default:
        return integerBits(format) / 8;
    }
}

/// libsndfile's name of a container or codec.
std::string nameOf(int format)
{
    SF_FORMAT_INFO description{};
    description.format = format;
    const bool known =
        sf_command(nullptr, SFC_GET_FORMAT_INFO, &description, sizeof description) == 0 && description.name != nullptr;
    return known ? description.name : "unknown";
}

bool isMpeg(const SF_INFO& info) noexcept
{
    return (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
}

bool isOgg(const SF_INFO& info) noexcept
{
    return (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG;
}

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
    const int descriptor = file.descriptor.number();
    std::vector<ByteRange> ranges = containerParts(descriptor);
    decoder = openDecoder(descriptor, ranges.front());
    if (isOgg(decoder->info())) ranges = oggLinks(descriptor).links;
    if (isMpeg(decoder->info())) ranges = mpegParts(descriptor);
    if (ranges.front().end < file.bytes) decoder = openDecoder(descriptor, ranges.front());
    info = decoder->info();
    parts.push_back(partOf(*decoder, ranges.front()));
    for (std::size_t i = 1; i < ranges.size(); ++i) {
        try {
            parts.push_back(partOf(*openDecoder(descriptor, ranges[i]), ranges[i]));
        } catch (const std::runtime_error&) {
            parts.push_back({.bytes = ranges[i], .declared = {}, .rate = info.samplerate, .leftOut = true});
        }
    }

    std::uint64_t sum = 0;
    bool allDeclared = true;
    for (const Part& part : parts) {
        sum += part.declared.value_or(0);
        allDeclared = allDeclared && part.declared;
    }
    if (allDeclared) declared = sum;
    expected = declared;
    if (!expected && parts.size() == 1 && info.frames != SF_COUNT_MAX)
        expected = static_cast<std::uint64_t>(info.frames);
}

/// Describes a part.
FileSource::Part FileSource::partOf(const Decoder& opened, ByteRange bytes) const
{
    const SF_INFO& facts = opened.info();
    Part part{.bytes = bytes, .declared = {}, .rate = facts.samplerate};
    part.leftOut = facts.samplerate != info.samplerate || facts.channels != info.channels ||
                   integerBits(facts.format) != integerBits(info.format);
    part.hasDamagedPages = isOgg(facts) && dynamic_cast<const SndfileDecoder*>(&opened) != nullptr &&
                           oggLinks(file.descriptor.number()).skippedBytes > 0;
    if (facts.frames == SF_COUNT_MAX) {
        // A FLAC encoder that writes to a pipe cannot declare the length; the decoder checks the end. Other Ogg streams
        // mark their last page.
        part.lacksEnd = isOgg(facts) && integerBits(facts.format) == 0;
    } else if (!isMpeg(facts) || hasMpegIndex(file.descriptor.number(), bytes.begin)) {
        part.declared = static_cast<std::uint64_t>(facts.frames);
        // libsndfile does not notice that a file is cut.
        if (const auto audio = declaredAudioBytes(FileBytes(file.descriptor.number(), bytes));
            audio && audio->present < audio->declared) {
            const std::uint64_t frameBytes = storedBytes(facts.format) * static_cast<std::uint64_t>(facts.channels);
            if (frameBytes != 0) {
                part.declared = audio->declared / frameBytes;
            } else {
                part.lacksEnd = true;
            }
        }
    }
    return part;
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
    return {.container = nameOf(info.format & SF_FORMAT_TYPEMASK),
            .codec = isOggFlac ? "FLAC" : nameOf(info.format & SF_FORMAT_SUBMASK),
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
    return metadata;
}

void FileSource::rewind()
{
    openPart(0);
    position = partBegin = missing = silenced = 0;
    missesUnknown = losesUnknown = false;
    damageBegin.reset();
    reason.clear();
}

void FileSource::openPart(std::size_t index)
{
    current = index;
    while (current < parts.size() && parts[current].leftOut) ++current;
    partBegin = position;
    if (current < parts.size()) decoder = openDecoder(file.descriptor.number(), parts[current].bytes);
}

/// Records the position of the first damage.
void FileSource::recordDamage(std::uint64_t frame) noexcept
{
    if (!damageBegin) damageBegin = frame;
}

/// Records the losses of the current part.
void FileSource::endPart()
{
    const Part& part = parts[current];
    const std::uint64_t frames = position - partBegin;
    if (part.declared && frames < *part.declared) {
        missing += *part.declared - frames;
        recordDamage(position);
    }
    silenced += decoder->silencedFrames();
    const std::string error = decoder->error();
    if (part.lacksEnd || (!part.declared && !error.empty())) {
        missesUnknown = true;
        recordDamage(position);
    }
    if (!error.empty()) reason = error;
    if (part.hasDamagedPages) {
        reason = "some of its pages are damaged";
        losesUnknown = losesUnknown || missing == 0;
    }
}

StreamFormat FileSource::format() const noexcept
{
    constexpr std::uint32_t kLossyWidth = 24;
    const std::uint32_t own = integerBits(info.format);
    std::uint32_t bits = kLossyWidth;
    if (own != 0) bits = *std::find_if(kWidths.begin(), kWidths.end(), [own](std::uint32_t w) { return w >= own; });
    return {.sampleRate = static_cast<std::uint32_t>(info.samplerate), .bits = bits};
}

std::vector<std::string> FileSource::prepare(bool showProgress)
{
    std::vector<std::string> notes;
    if (info.channels == 1) notes.emplace_back("mono, which is read as equal left and right");
    if (integerBits(info.format) != 0) return notes;

    const double peak = findPeak(showProgress);
    expected = position;
    rewind();
    if (peak <= 1.0) return notes;

    gain = 1.0 / peak;
    const std::string excess = formatted("%.2f dB", decibels(peak));
    notes.push_back("peak +" + excess + " above full scale: scaled down by " + excess);
    return notes;
}

double FileSource::findPeak(bool showProgress)
{
    Progress progress("finding the peak", expected, format().sampleRate, showProgress);
    std::vector<double> stereo(kScanFrames * kChannels);
    double peak = 0.0;
    while (const std::size_t frames = readFullScale(stereo.data(), kScanFrames)) {
        throwIfInterrupted();
        for (std::size_t i = 0; i < frames * kChannels; ++i) peak = std::max(peak, std::abs(stereo[i]));
        progress.advance(frames);
    }
    return peak;
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
        if (decoder->silencedFrames() > 0 || (isMpeg(info) && !decoder->error().empty())) recordDamage(position);
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
    if (integerBits(info.format) != 0) return decode(stereo, capacity);
    decoded.resize(capacity * kChannels);
    const std::size_t frames = decode(decoded.data(), capacity);
    for (std::size_t i = 0; i < frames * kChannels; ++i) stereo[i] = fromFullScale(decoded[i] * gain);
    return frames;
}

std::optional<Loss> FileSource::loss() const
{
    if (position == 0)
        throw Failure(EX_DATAERR, file.name + ": contains no audio: 0 frames" +
                                      (reason.empty() ? "" : " could be decoded (" + reason + ")") + "; check " +
                                      (file.fromPipe ? "the command before the pipe" : "where it comes from"));

    double seconds = static_cast<double>(missing + silenced) / info.samplerate;
    bool unknown = missesUnknown || losesUnknown;
    std::size_t leftOut = 0;
    for (const Part& part : parts) {
        if (!part.leftOut) continue;
        ++leftOut;
        seconds += static_cast<double>(part.declared.value_or(0)) / part.rate;
        unknown = unknown || !part.declared;
    }

    std::vector<std::string> facts;
    if (missing > 0)
        facts.push_back("it declares " + std::to_string(position + missing) + " frames and has " +
                        std::to_string(position));
    if (silenced > 0) facts.push_back(std::to_string(silenced) + " frames are damaged and become silence");
    if (missesUnknown) facts.push_back("its end is missing after frame " + std::to_string(position));
    if (leftOut > 0)
        facts.push_back(
            std::to_string(leftOut) + " of its " + std::to_string(parts.size()) +
            " joined streams have another rate, another width, other channels or no audio and are left out");
    if (!reason.empty()) facts.push_back(reason);
    if (facts.empty()) return std::nullopt;

    if (unknown) facts.emplace_back("how much is missing is not known");
    if (!unknown && seconds > 0.0) facts.push_back(formatted("%.3f seconds are missing", seconds));
    if (damageBegin)
        facts.push_back("the damage begins at " +
                        durationText(*damageBegin, static_cast<std::uint32_t>(info.samplerate)));
    std::string message = "is cut short or damaged: ";
    for (const std::string& fact : facts) message += (&fact == &facts.front() ? "" : "; ") + fact;
    return Loss{.message = message,
                .seconds = unknown ? std::nullopt : std::optional(seconds),
                .advice = file.fromPipe ? "check the command before the pipe" : "get a complete copy of the file"};
}

} // namespace tarn
