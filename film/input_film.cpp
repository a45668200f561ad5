// A film that is read, and its stereo track.
// SPDX-License-Identifier: MIT
#include "film/input_film.h"

#include "cli/descriptor.h"
#include "cli/interrupt.h"
#include "cli/text.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include <fcntl.h>

namespace tarn
{

namespace
{

/// More than this in a row, and the rest of a film cannot be read.
constexpr int kMaxErrorsInARow = 1000;

/// Declared lengths are rounded, and last packets can lack a duration.
constexpr double kLengthTolerance = 0.25; // seconds

std::string languageOf(const AVStream& stream)
{
    const AVDictionaryEntry* const entry = av_dict_get(stream.metadata, "language", nullptr, 0);
    return entry != nullptr ? entry->value : "";
}

bool isAudio(const AVStream& stream)
{
    return stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
}

bool isStereo(const AVStream& stream)
{
    return isAudio(stream) && stream.codecpar->ch_layout.nb_channels == 2;
}

bool isDefault(const AVStream& stream)
{
    return (stream.disposition & AV_DISPOSITION_DEFAULT) != 0;
}

} // namespace

InputFilm::InputFilm(const std::string& filmPath) : path(filmPath)
{
    if (path == "-") throw Failure(EX_USAGE, "-: films are not read from a pipe; name a file (a file called - is ./-)");
    const Descriptor opened(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (opened.number() < 0) throw Failure(EX_NOINPUT, path + ": " + systemError(errno) + "; name a file that exists");
    file = identityOf(opened.number());

    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) throw Failure(EX_SOFTWARE, "out of memory");
    context->interrupt_callback.callback = [](void*) { return arrivedSignal() != 0 ? 1 : 0; };
    // AVI, MPEG program streams and others do not store the time stamps of reordered pictures.
    context->flags |= AVFMT_FLAG_GENPTS;
    // Without a protocol, a name with a colon would be taken for one.
    const int error = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, nullptr);
    throwIfInterrupted();
    if (error < 0)
        throw Failure(EX_DATAERR, path + ": is not a film or a recording that can be read: " + textOf(error) +
                                      "; check it with ffprobe");
    format.reset(context);
    isLengthFromZero = context->duration > 0 || std::string_view(context->iformat->name) == "asf";
    checked(avformat_find_stream_info(context, nullptr), EX_DATAERR, path);
    throwIfInterrupted();
}

std::optional<double> InputFilm::duration() const noexcept
{
    if (format->duration <= 0) return std::nullopt;
    return static_cast<double>(format->duration) / AV_TIME_BASE;
}

std::optional<std::uint64_t> InputFilm::expectedFrames(std::uint32_t rateHz) const noexcept
{
    const std::optional<double> seconds = duration();
    return seconds ? std::optional(static_cast<std::uint64_t>(*seconds * rateHz)) : std::nullopt;
}

void InputFilm::readOnly(unsigned track) noexcept
{
    for (unsigned index = 0; index < format->nb_streams; ++index)
        if (index != track) stream(index).discard = AVDISCARD_ALL;
}

bool InputFilm::read(AVPacket& packet)
{
    for (int inARow = 0; inARow < kMaxErrorsInARow; ++inARow) {
        const int result = av_read_frame(format.get(), &packet);
        throwIfInterrupted();
        if (result >= 0) {
            if ((format->iformat->flags & AVFMT_TS_DISCONT) != 0)
                joined.shift(packet, stream(static_cast<unsigned>(packet.stream_index)));
            follow(packet);
            return true;
        }
        if (result == AVERROR_EOF) return false;
        ++readErrors;
        if (result != AVERROR_INVALIDDATA && result != AVERROR(EAGAIN)) return false;
    }
    return false;
}

/// Keeps the end of a packet.
void InputFilm::follow(const AVPacket& packet)
{
    const AVStream& from = stream(static_cast<unsigned>(packet.stream_index));
    if ((from.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) return;
    const std::int64_t begin = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (begin == AV_NOPTS_VALUE) return;
    const double end = (static_cast<double>(begin) + static_cast<double>(packet.duration)) * av_q2d(from.time_base);
    ends.resize(std::max<std::size_t>(ends.size(), format->nb_streams));
    std::optional<double>& last = ends[static_cast<unsigned>(packet.stream_index)];
    last = std::max(last.value_or(end), end);
}

std::optional<double> InputFilm::declaredEnd() const noexcept
{
    if (!duration() || format->duration_estimation_method != AVFMT_DURATION_FROM_STREAM) return std::nullopt;
    return isLengthFromZero ? *duration() : *duration() + startSeconds();
}

std::optional<double> InputFilm::latestEnd() const noexcept
{
    const std::optional<double> end = declaredEnd();
    return end ? std::optional(std::max(*end, *duration() + startSeconds())) : std::nullopt;
}

double InputFilm::startSeconds() const noexcept
{
    return format->start_time != AV_NOPTS_VALUE ? static_cast<double>(format->start_time) / AV_TIME_BASE : 0.0;
}

FileDamage InputFilm::damage(unsigned track) const
{
    FileDamage damage{.errors = readErrors, .declaredSeconds = declaredEnd().value_or(0.0)};
    if (!declaredEnd()) return damage;
    double end = 0.0;
    for (const std::optional<double>& last : ends) end = std::max(end, last.value_or(0.0));
    double missing = *declaredEnd() - end;
    // Containers with an index declare the length of every track.
    const AVStream& own = stream(track);
    if (own.nb_frames > 0 && own.duration > 0 && own.start_time != AV_NOPTS_VALUE && track < ends.size()) {
        const double declared =
            (static_cast<double>(own.start_time) + static_cast<double>(own.duration)) * av_q2d(own.time_base);
        if (declared - ends[track].value_or(0.0) > std::max(missing, kLengthTolerance)) {
            missing = declared - ends[track].value_or(0.0);
            damage.declaredSeconds = declared;
        }
    }
    if (missing > kLengthTolerance) damage.missingEndSeconds = missing;
    return damage;
}

unsigned InputFilm::chooseTrack(const FilmOptions& options) const
{
    if (options.stream) {
        const auto index = static_cast<unsigned>(*options.stream);
        if (index >= format->nb_streams || !isAudio(stream(index)))
            throw Failure(EX_USAGE, "--stream " + std::to_string(index) + ": " + path +
                                        " has no audio track of this number; " + listOfTracks());
        if (!isStereo(stream(index)))
            throw Failure(EX_DATAERR, path + ": track " + std::to_string(index) + " is not stereo; " + listOfTracks());
        return index;
    }
    if (options.language.empty() && !options.forceTrack) refuseSurround();
    for (unsigned index = 0; index < format->nb_streams; ++index)
        if (isStereo(stream(index)) && (options.language.empty() || languageOf(stream(index)) == options.language))
            return index;
    throw Failure(EX_DATAERR, path + ": has no stereo track" +
                                  (options.language.empty() ? "" : " in the language " + options.language) + "; " +
                                  listOfTracks());
}

/// Throws Failure if a default audio track has more than two channels. Without a mark, the first one is the default.
void InputFilm::refuseSurround() const
{
    std::vector<unsigned> audio;
    for (unsigned index = 0; index < format->nb_streams; ++index)
        if (isAudio(stream(index))) audio.push_back(index);
    const bool hasDefault =
        std::any_of(audio.begin(), audio.end(), [this](unsigned index) { return isDefault(stream(index)); });
    for (const unsigned index : audio) {
        const int channels = stream(index).codecpar->ch_layout.nb_channels;
        const bool isPlayed = hasDefault ? isDefault(stream(index)) : index == audio.front();
        if (isPlayed && channels > 2)
            throw Failure(EX_DATAERR, path + ": its default audio track has " + std::to_string(channels) +
                                          " channels already; add --force-track to upmix a stereo track all the same, "
                                          "or choose one with --stream or --language");
    }
}

std::string InputFilm::describe(unsigned index) const
{
    const AVStream& described = stream(index);
    const std::string language = languageOf(described);
    return std::to_string(index) + " (" + avcodec_get_name(described.codecpar->codec_id) + ", " +
           std::to_string(described.codecpar->ch_layout.nb_channels) + " channels" +
           (language.empty() ? "" : ", " + language) + ")";
}

std::string InputFilm::otherThanStereo(unsigned except) const
{
    std::string list;
    for (unsigned index = 0; index < format->nb_streams; ++index)
        if (index != except && isAudio(stream(index)) && !isStereo(stream(index)))
            list += (list.empty() ? "track " : ", track ") + describe(index);
    return list;
}

std::string InputFilm::listOfTracks() const
{
    std::string list;
    for (unsigned index = 0; index < format->nb_streams; ++index)
        if (isAudio(stream(index))) list += (list.empty() ? "its audio tracks: " : ", ") + describe(index);
    return list.empty() ? "it has no audio" : list;
}

} // namespace tarn
