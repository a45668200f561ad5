#include "cli/file_source.h"

#include "cli/container_promise.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/sndfile_opening.h"
#include "cli/text.h"

#include <algorithm>
#include <cerrno>
#include <cmath>

#include <fcntl.h>
#include <sys/stat.h>

namespace tarn
{

namespace
{

constexpr std::size_t kChannels = 2;
constexpr std::size_t kScanFrames = 4096;

/// Width of the samples of an integer format; 0 for floating-point and lossy ones.
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

/// Bytes that a sample takes in a file; 0 for compressed formats.
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
    default:
        return integerBits(format) / 8;
    }
}

/// libsndfile's words for a container or a codec.
std::string nameOf(int format)
{
    SF_FORMAT_INFO description{};
    description.format = format;
    const bool known =
        sf_command(nullptr, SFC_GET_FORMAT_INFO, &description, sizeof description) == 0 && description.name != nullptr;
    return known ? description.name : "unknown";
}

bool isMpeg(int format) noexcept
{
    return (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
}

bool isOgg(int format) noexcept
{
    return (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG;
}

/// A sample in units of full scale as a left-justified one.
std::int32_t fromFullScale(double sample) noexcept
{
    const double scaled = std::round(sample * 0x1p31);
    return static_cast<std::int32_t>(std::clamp(scaled, -0x1p31, 0x1p31 - 1.0));
}

/// What to do about a file that ends early.
std::string repairHint(const std::string& path)
{
    return "; copy the file again, or keep what is there with: ffmpeg -i " + shellQuoted(path) + " repaired.wav";
}

Failure cutShort(const std::string& path, std::uint64_t promised, std::uint64_t present, const std::string& unit)
{
    return {EX_DATAERR, path + ": is cut short or damaged: it promises " + std::to_string(promised) + " " + unit +
                            ", but only " + std::to_string(present) + " are there" + repairHint(path)};
}

Failure noAudio(const std::string& path)
{
    return {EX_DATAERR, path +
                            ": holds no audio: 0 frames; check where it comes from, or if a recording was "
                            "interrupted, try: ffmpeg -i " +
                            shellQuoted(path) + " repaired.wav"};
}

} // namespace

FileSource::FileSource(const std::string& inputPath, Demand demand) : path(inputPath)
{
    openDescriptor();
    openSndfile();
    if (demand == Demand::Upmixable) checkFormat();
    checkLength();
}

FileFacts FileSource::facts() const
{
    return {.container = nameOf(info.format & SF_FORMAT_TYPEMASK),
            .codec = nameOf(info.format & SF_FORMAT_SUBMASK),
            .sampleRate = static_cast<std::uint32_t>(info.samplerate),
            .bits = integerBits(info.format),
            .channels = static_cast<std::uint32_t>(info.channels),
            .frames = promised};
}

void FileSource::openDescriptor()
{
    // Without O_NONBLOCK, a named pipe would block before it can be refused.
    file = Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.number() < 0)
        throw Failure(EX_NOINPUT,
                      path + ": cannot be opened: " + systemError(errno) + "; check the name and that you may read it");

    struct stat status = {};
    fstat(file.number(), &status);
    if (S_ISDIR(status.st_mode)) throw Failure(EX_NOINPUT, path + ": is a directory; name an audio file in it");
    if (!S_ISREG(status.st_mode))
        throw Failure(EX_NOINPUT, path + ": is not a regular file; stream raw PCM through '-' with --raw RATE:BITS "
                                         "instead");
    if (status.st_size == 0) throw Failure(EX_DATAERR, path + ": is empty, 0 bytes; check where it comes from");
}

void FileSource::openSndfile()
{
    // libsndfile takes the descriptor's position for the start of the file.
    lseek(file.number(), 0, SEEK_SET);
    info = {};
    const std::lock_guard opening(sndfileOpening());
    handle.reset(sf_open_fd(file.number(), SFM_READ, &info, SF_FALSE));
    position = 0;
    if (handle != nullptr) return;

    const std::string reason = std::string(" (") + sf_strerror(nullptr) + ")";
    if (sf_error(nullptr) == SF_ERR_MALFORMED_FILE)
        throw Failure(EX_DATAERR, path + ": is cut short or damaged" + reason + repairHint(path));
    throw Failure(EX_DATAERR, path + ": is not an audio file that can be read" + reason +
                                  "; convert it, for example: ffmpeg -i " + shellQuoted(path) + " converted.wav");
}

void FileSource::checkFormat() const
{
    const std::string from = shellQuoted(path);
    if (info.channels == 1)
        throw Failure(EX_DATAERR, path +
                                      ": is mono, and only stereo can be upmixed; put it on both channels with: "
                                      "ffmpeg -i " +
                                      from + " -ac 2 stereo.wav");
    if (info.channels != static_cast<int>(kChannels))
        throw Failure(EX_DATAERR, path + ": has " + std::to_string(info.channels) +
                                      " channels and is multichannel already; only stereo can be upmixed. Mix it down "
                                      "with: ffmpeg -i " +
                                      from + " -ac 2 stereo.wav");
    if (!isEngineRate(static_cast<std::uint32_t>(info.samplerate)))
        throw Failure(EX_DATAERR, path + ": runs at " + std::to_string(info.samplerate) + " Hz, and the engine at " +
                                      rateList() + "; resample it with: ffmpeg -i " + from + " -ar 48000 48k.wav");
}

void FileSource::checkLength()
{
    const auto frames = static_cast<std::uint64_t>(info.frames);
    if (const auto audio = promisedAudio(file.number()); audio && audio->present < audio->promised) {
        const std::uint64_t frameBytes = storedBytes(info.format) * static_cast<std::uint64_t>(info.channels);
        if (frameBytes == 0) throw cutShort(path, audio->promised, audio->present, "bytes of audio");
        throw cutShort(path, audio->promised / frameBytes, audio->present / frameBytes, "frames");
    }
    if (frames == 0) throw noAudio(path);

    if (info.frames == SF_COUNT_MAX) {
        // A FLAC encoder that wrote to a pipe could not fill in the length; an Ogg stream marks its last page.
        if (isOgg(info.format))
            throw Failure(EX_DATAERR, path +
                                          ": is cut short: the stream has no last page, so its promised length "
                                          "is lost" +
                                          repairHint(path));
        return;
    }
    expected = frames;
    if (!isMpeg(info.format) || hasMpegIndex(file.number())) promised = frames;
}

StreamFormat FileSource::format() const noexcept
{
    constexpr std::uint32_t kLossyWidth = 24;
    const std::uint32_t own = integerBits(info.format);
    std::uint32_t bits = kLossyWidth;
    if (own != 0) bits = *std::find_if(kWidths.begin(), kWidths.end(), [own](std::uint32_t w) { return w >= own; });
    return {.sampleRate = static_cast<std::uint32_t>(info.samplerate), .bits = bits};
}

std::string FileSource::prepare(bool showProgress)
{
    if (integerBits(info.format) != 0) return {};

    const double peak = findPeak(showProgress);
    verifyEnd();
    promised = expected = position;
    openSndfile();
    if (peak <= 1.0) return {};

    gain = 1.0 / peak;
    const std::string excess = formatted("%.2f dB", decibels(peak));
    return path + ": peak +" + excess + " above full scale: scaled down by " + excess;
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
            throw Failure(EX_DATAERR, path + ": frame " + std::to_string(position - frames + i / kChannels) +
                                          " holds a sample that is infinite or not a number; repair it where it "
                                          "was made");
    return frames;
}

std::size_t FileSource::decode(double* stereo, std::size_t capacity)
{
    const sf_count_t frames = sf_readf_double(handle.get(), stereo, static_cast<sf_count_t>(capacity));
    const auto count = static_cast<std::size_t>(std::max<sf_count_t>(frames, 0));
    position += count;
    return count;
}

std::size_t FileSource::read(std::int32_t* stereo, std::size_t capacity)
{
    if (integerBits(info.format) == 0) {
        decoded.resize(capacity * kChannels);
        const std::size_t frames = decode(decoded.data(), capacity);
        for (std::size_t i = 0; i < frames * kChannels; ++i) stereo[i] = fromFullScale(decoded[i] * gain);
        return frames;
    }
    const sf_count_t frames = sf_readf_int(handle.get(), stereo, static_cast<sf_count_t>(capacity));
    const auto count = static_cast<std::size_t>(std::max<sf_count_t>(frames, 0));
    position += count;
    return count;
}

bool FileSource::hasLastFrame()
{
    std::vector<double> frame(static_cast<std::size_t>(info.channels));
    return sf_seek(handle.get(), info.frames - 1, SEEK_SET) >= 0 &&
           sf_readf_double(handle.get(), frame.data(), 1) == 1 && sf_error(handle.get()) == SF_ERR_NO_ERROR;
}

void FileSource::verifyEnd() const
{
    if (promised && position < *promised) throw cutShort(path, *promised, position, "frames");
    if (sf_error(handle.get()) != SF_ERR_NO_ERROR)
        throw Failure(EX_DATAERR, path + ": is damaged after frame " + std::to_string(position) + " (" +
                                      sf_strerror(handle.get()) + ")" + repairHint(path));
    if (position == 0) throw noAudio(path);
}

} // namespace tarn
