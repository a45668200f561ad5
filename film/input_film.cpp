// A film that is read, and its stereo track.
// SPDX-License-Identifier: MIT
#include "film/input_film.h"

#include "cli/descriptor.h"
#include "cli/interrupt.h"
#include "cli/text.h"

#include <cerrno>

#include <fcntl.h>

namespace tarn
{

namespace
{

/// More than this in a row, and the rest of a film cannot be read.
constexpr int kMaxErrorsInARow = 1000;

std::string languageOf(const AVStream& stream)
{
    const AVDictionaryEntry* const entry = av_dict_get(stream.metadata, "language", nullptr, 0);
    return entry != nullptr ? entry->value : "";
}

bool isStereo(const AVStream& stream)
{
    return stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO && stream.codecpar->ch_layout.nb_channels == 2;
}

bool isDefault(const AVStream& stream)
{
    return (stream.disposition & AV_DISPOSITION_DEFAULT) != 0;
}

} // namespace

InputFilm::InputFilm(const std::string& filmPath) : path(filmPath)
{
    const Descriptor opened(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (opened.number() < 0) throw Failure(EX_NOINPUT, path + ": " + systemError(errno) + "; name a file that exists");
    file = identityOf(opened.number());

    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) throw Failure(EX_SOFTWARE, "out of memory");
    context->interrupt_callback.callback = [](void*) { return arrivedSignal() != 0 ? 1 : 0; };
    // Without a protocol, a name with a colon would be taken for one.
    const int error = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, nullptr);
    throwIfInterrupted();
    if (error < 0)
        throw Failure(EX_DATAERR, path + ": is not a film or a recording that can be read: " + textOf(error) +
                                      "; check it with ffprobe");
    format.reset(context);
    checked(avformat_find_stream_info(context, nullptr), EX_DATAERR, path);
    throwIfInterrupted();
}

std::optional<double> InputFilm::duration() const noexcept
{
    if (format->duration <= 0) return std::nullopt;
    return static_cast<double>(format->duration) / AV_TIME_BASE;
}

bool InputFilm::read(AVPacket& packet)
{
    for (int inARow = 0; inARow < kMaxErrorsInARow; ++inARow) {
        const int result = av_read_frame(format.get(), &packet);
        throwIfInterrupted();
        if (result >= 0) return true;
        if (result == AVERROR_EOF) return false;
        ++readErrors;
        if (result != AVERROR_INVALIDDATA && result != AVERROR(EAGAIN)) return false;
    }
    return false;
}

unsigned InputFilm::chooseTrack(const FilmOptions& options) const
{
    if (options.stream) {
        const auto index = static_cast<unsigned>(*options.stream);
        if (index >= format->nb_streams || stream(index).codecpar->codec_type != AVMEDIA_TYPE_AUDIO)
            throw Failure(EX_USAGE, "--stream " + std::to_string(index) + ": " + path +
                                        " has no audio track of this number; " + listOfTracks());
        if (!isStereo(stream(index)))
            throw Failure(EX_DATAERR, path + ": track " + std::to_string(index) + " is not stereo; " + listOfTracks());
        return index;
    }

    std::optional<unsigned> chosen;
    for (unsigned index = 0; index < format->nb_streams; ++index) {
        const AVStream& candidate = stream(index);
        const AVCodecParameters& codec = *candidate.codecpar;
        if (codec.codec_type != AVMEDIA_TYPE_AUDIO) continue;
        if (codec.ch_layout.nb_channels > 2 && isDefault(candidate) && !options.forceTrack)
            throw Failure(EX_DATAERR, path + ": its default audio track has " +
                                          std::to_string(codec.ch_layout.nb_channels) +
                                          " channels already; add --force-track to upmix a stereo track all the same");
        if (!isStereo(candidate)) continue;
        if (!options.language.empty() && languageOf(candidate) != options.language) continue;
        if (!chosen) chosen = index;
    }
    if (!chosen)
        throw Failure(EX_DATAERR, path + ": has no stereo track" +
                                      (options.language.empty() ? "" : " in the language " + options.language) + "; " +
                                      listOfTracks());
    return *chosen;
}

std::string InputFilm::listOfTracks() const
{
    std::string list;
    for (unsigned index = 0; index < format->nb_streams; ++index) {
        const AVCodecParameters& codec = *stream(index).codecpar;
        if (codec.codec_type != AVMEDIA_TYPE_AUDIO) continue;
        list += (list.empty() ? "its audio tracks: " : ", ") + std::to_string(index) + " (" +
                avcodec_get_name(codec.codec_id) + ", " + std::to_string(codec.ch_layout.nb_channels) + " channels" +
                (languageOf(stream(index)).empty() ? "" : ", " + languageOf(stream(index))) + ")";
    }
    return list.empty() ? "it has no audio" : list;
}

} // namespace tarn
