// A film that is written.
// SPDX-License-Identifier: MIT
#include "film/output_film.h"

#include "cli/interrupt.h"
#include "film/encoding.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <iterator>
#include <string_view>
#include <utility>

#include <unistd.h>

extern "C" {
#include <libavutil/common.h>
}

namespace tarn
{

namespace
{

constexpr int kBufferBytes = 1 << 16;

/// Codecs start up to this far below zero, and Matroska can store that. Its clusters cannot be further below.
constexpr double kMaxPriming = 1.0; // seconds

/// Whole seconds, which all time bases can express, that lift the start of a film above zero.
int delayFor(double startSeconds)
{
    constexpr double kLongest = 1e6; // MPEG transport streams count up to 95443 s
    return startSeconds < -kMaxPriming && startSeconds > -kLongest ? static_cast<int>(std::ceil(-startSeconds)) : 0;
}

/// "subtitle track 3 (subrip)".
std::string descriptionOf(const AVStream& stream)
{
    const char* const type = av_get_media_type_string(stream.codecpar->codec_type);
    return std::string(type != nullptr ? type : "data") + " track " + std::to_string(stream.index) + " (" +
           avcodec_get_name(stream.codecpar->codec_id) + ")";
}

/// A kind of picture that Matroska attaches as a file.
struct PictureKind
{
    AVCodecID codec;
    const char* extension;
    const char* mimeType;
};

constexpr PictureKind kPictureKinds[] = {
    {AV_CODEC_ID_MJPEG, ".jpg", "image/jpeg"}, {AV_CODEC_ID_PNG, ".png", "image/png"},
    {AV_CODEC_ID_GIF, ".gif", "image/gif"},    {AV_CODEC_ID_TIFF, ".tiff", "image/tiff"},
    {AV_CODEC_ID_BMP, ".bmp", "image/bmp"},    {AV_CODEC_ID_WEBP, ".webp", "image/webp"},
};

const PictureKind* pictureKindOf(AVCodecID codec)
{
    const auto* const found = std::find_if(std::begin(kPictureKinds), std::end(kPictureKinds),
                                           [codec](const PictureKind& kind) { return kind.codec == codec; });
    return found != std::end(kPictureKinds) ? found : nullptr;
}

/// Whether a stream is one picture, such as a cover. Thumbnails of chapters are many.
bool isPicture(const AVStream& stream)
{
    return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0 &&
           (stream.disposition & AV_DISPOSITION_TIMED_THUMBNAILS) == 0;
}

/// The container of an extension; null if films are not written in it.
const AVOutputFormat* containerOf(const std::string& path)
{
    constexpr std::string_view kContainers[] = {"matroska", "webm", "mp4", "mov", "ipod", "flac"};
    const AVOutputFormat* const guessed = av_guess_format(nullptr, path.c_str(), nullptr);
    if (guessed == nullptr || std::ranges::find(kContainers, std::string_view(guessed->name)) == std::end(kContainers))
        return nullptr;
    // The muxer of .mka writes Matroska too, but takes fewer codecs.
    return av_guess_format(guessed->name, nullptr, nullptr);
}

} // namespace

OutputFilm::OutputFilm(const std::string& filmPath, bool force, const InputFilm& inputFilm, NamingHook hook)
    : path(filmPath), input(inputFilm), file(path, force, inputFilm.identity(), std::move(hook))
{
    const AVOutputFormat* const container = containerOf(path);
    if (container == nullptr)
        throw Failure(
            EX_USAGE,
            path + ": films are not written with this extension; end the name in .mkv, .mp4, .mka, .m4a or .flac");
    checked(avformat_alloc_output_context2(&format, container, nullptr, path.c_str()), EX_SOFTWARE, path);
    auto* const buffer = static_cast<std::uint8_t*>(av_malloc(kBufferBytes));
    format->pb = avio_alloc_context(buffer, kBufferBytes, 1, this, nullptr, writeBytes, seek);
    if (buffer == nullptr || format->pb == nullptr) throw Failure(EX_SOFTWARE, "out of memory");
    format->flags |= AVFMT_FLAG_CUSTOM_IO;
    addedSeconds = delayFor(input.startSeconds());
    format->output_ts_offset = static_cast<std::int64_t>(addedSeconds) * AV_TIME_BASE;
}

OutputFilm::~OutputFilm()
{
    if (format == nullptr) return;
    if (format->pb != nullptr) {
        av_freep(&format->pb->buffer);
        avio_context_free(&format->pb);
    }
    avformat_free_context(format);
}

std::vector<std::string> OutputFilm::begin(const AVCodecContext& upmixed, unsigned track, bool replace)
{
    const AVFormatContext& from = input.context();
    for (unsigned index = 0; index < from.nb_streams; ++index) {
        outputOf.push_back(-1);
        converters.emplace_back();
        times.emplace_back();
        const AVStream& stream = input.stream(index);
        if (index == track) addUpmixed(upmixed, stream);
        if (index != track || !replace) addStreamOf(stream);
    }
    lastTimes.assign(format->nb_streams, AV_NOPTS_VALUE);
    if (isMp4()) nameHandlers();
    copyChapters();
    checked(av_dict_copy(&format->metadata, from.metadata, 0), EX_SOFTWARE, path);
    format->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL; // FLAC and Opus in MP4
    // Matroska stores negative time stamps. If the muxer shifted them, the film would start later than before.
    if (isMatroska()) format->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    // MP4 stores late starts in this clock, whose default counts milliseconds. Matroska has no such option.
    av_opt_set_int(format->priv_data, "movie_timescale", upmixed.sample_rate, 0);
    const int error = avformat_write_header(format, nullptr);
    if (writeError != 0) file.failToWrite(writeError, "writing failed");
    checked(error, EX_DATAERR, path + ": the container refuses a track of " + input.name());
    return lost;
}

void OutputFilm::copy(AVPacket& packet)
{
    const auto index = static_cast<unsigned>(packet.stream_index);
    // Some containers find further streams while they are read.
    if (index >= outputOf.size() || outputOf[index] < 0) {
        av_packet_unref(&packet);
    } else if (!times[index] || times[index]->exchange(packet)) {
        writeCopy(packet);
    }
}

void OutputFilm::writeCopy(AVPacket& packet)
{
    const auto index = static_cast<unsigned>(packet.stream_index);
    if (converters[index] && !converters[index]->convert(packet)) {
        av_packet_unref(&packet);
        return;
    }
    write(packet, input.stream(index).time_base, *format->streams[outputOf[index]]);
}

void OutputFilm::add(AVPacket& packet)
{
    write(packet, upmixedTime, *format->streams[upmixedIndex]);
}

void OutputFilm::finish()
{
    const Packet last = newPacket();
    for (const std::unique_ptr<PacketTimes>& stream : times)
        if (stream && stream->drain(*last)) writeCopy(*last);
    const int error = av_write_trailer(format);
    avio_flush(format->pb);
    if (writeError != 0) file.failToWrite(writeError, "writing failed");
    checked(error, EX_IOERR, path);
    file.commit();
}

bool OutputFilm::isMatroska() const noexcept
{
    return std::string_view(format->oformat->name) == "matroska";
}

AVStream& OutputFilm::addStream()
{
    return *allocated(avformat_new_stream(format, nullptr));
}

/// Whether this kind of file has one audio track and nothing else but pictures.
bool OutputFilm::isFlac() const noexcept
{
    return std::string_view(format->oformat->name) == "flac";
}

/// Whether this is a file of the MP4 family that has a place for covers.
bool OutputFilm::isMp4() const noexcept
{
    const std::string_view name = format->oformat->name;
    return name == "mp4" || name == "ipod";
}

/// Whether the container can hold a copy of a stream.
bool OutputFilm::canHold(const AVStream& stream) const
{
    const AVCodecID id = stream.codecpar->codec_id;
    if (isFlac()) return isPicture(stream);
    // The extension says that the file has no moving pictures.
    if (av_match_ext(path.c_str(), "mka") != 0 && stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) return false;
    if (isMatroska() && stream.codecpar->codec_type == AVMEDIA_TYPE_ATTACHMENT) return true;
    if (isMp4() && isPicture(stream)) return id == AV_CODEC_ID_MJPEG || id == AV_CODEC_ID_PNG || id == AV_CODEC_ID_BMP;
    return avformat_query_codec(format->oformat, id, FF_COMPLIANCE_EXPERIMENTAL) != 0;
}

/// Adds a stream of the input: a copy, converted subtitles, or nothing if the container can hold neither.
void OutputFilm::addStreamOf(const AVStream& from)
{
    const AVCodecParameters& codec = *from.codecpar;
    if (isMatroska() && isPicture(from) && pictureKindOf(codec.codec_id) != nullptr) {
        attach(from);
    } else if (canHold(from)) {
        addCopy(from);
        const bool isClocked = codec.codec_type == AVMEDIA_TYPE_AUDIO || codec.codec_type == AVMEDIA_TYPE_VIDEO;
        if (isClocked && !isPicture(from)) times.back() = std::make_unique<PacketTimes>();
    } else if (!isFlac() && avformat_query_codec(format->oformat, AV_CODEC_ID_MOV_TEXT, 0) == 1 &&
               SubtitleConverter::canConvert(codec.codec_id)) {
        converters.back() = std::make_unique<SubtitleConverter>(path, from);
        AVStream& stream = addStream();
        checked(avcodec_parameters_from_context(stream.codecpar, &converters.back()->codec()), EX_SOFTWARE, path);
        describe(stream, from);
    } else {
        lost.push_back(descriptionOf(from) + " is left out, because this kind of file cannot hold it");
    }
}

/// Adds a picture as a file in the header of Matroska. It has no packets then.
void OutputFilm::attach(const AVStream& picture)
{
    const PictureKind& kind = *pictureKindOf(picture.codecpar->codec_id);
    AVStream& stream = addStream();
    AVCodecParameters& codec = *stream.codecpar;
    const auto size = static_cast<std::size_t>(picture.attached_pic.size);
    codec.codec_type = AVMEDIA_TYPE_ATTACHMENT;
    codec.codec_id = kind.codec;
    codec.extradata = static_cast<std::uint8_t*>(allocated(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE)));
    codec.extradata_size = picture.attached_pic.size;
    std::copy_n(picture.attached_pic.data, size, codec.extradata);
    checked(av_dict_copy(&stream.metadata, picture.metadata, 0), EX_SOFTWARE, path);
    // Players look for a file with the name "cover".
    const std::string name = pictures == 0 ? "cover" : "cover-" + std::to_string(pictures + 1);
    ++pictures;
    av_dict_set(&stream.metadata, "filename", (name + kind.extension).c_str(), AV_DICT_DONT_OVERWRITE);
    av_dict_set(&stream.metadata, "mimetype", kind.mimeType, AV_DICT_DONT_OVERWRITE);
}

void OutputFilm::addCopy(const AVStream& from)
{
    AVStream& stream = addStream();
    checked(avcodec_parameters_copy(stream.codecpar, from.codecpar), EX_SOFTWARE, path);
    if (av_codec_get_id(format->oformat->codec_tag, from.codecpar->codec_tag) != from.codecpar->codec_id)
        stream.codecpar->codec_tag = 0; // the container's own
    stream.avg_frame_rate = from.avg_frame_rate;
    stream.r_frame_rate = from.r_frame_rate;
    stream.sample_aspect_ratio = from.sample_aspect_ratio;
    for (int i = 0; i < from.nb_side_data; ++i) {
        const AVPacketSideData& data = from.side_data[i];
        std::uint8_t* const copied = allocated(av_stream_new_side_data(&stream, data.type, data.size));
        std::copy_n(data.data, data.size, copied);
    }
    describe(stream, from);
}

/// Copies what describes a stream of the input, which has its number.
void OutputFilm::describe(AVStream& stream, const AVStream& from)
{
    stream.time_base = from.time_base;
    stream.disposition = from.disposition;
    if (isPicture(from)) stream.disposition = AV_DISPOSITION_ATTACHED_PIC; // MP4 covers have no other one
    if (from.codecpar->codec_type == AVMEDIA_TYPE_AUDIO) stream.disposition &= ~AV_DISPOSITION_DEFAULT;
    checked(av_dict_copy(&stream.metadata, from.metadata, 0), EX_SOFTWARE, path);
    outputOf.back() = stream.index;
}

void OutputFilm::addUpmixed(const AVCodecContext& upmixed, const AVStream& original)
{
    AVStream& stream = addStream();
    checked(avcodec_parameters_from_context(stream.codecpar, &upmixed), EX_SOFTWARE, path);
    stream.time_base = upmixedTime = upmixed.time_base;
    stream.disposition = (original.disposition | AV_DISPOSITION_DEFAULT) & ~AV_DISPOSITION_ATTACHED_PIC;
    if (const AVDictionaryEntry* const language = av_dict_get(original.metadata, "language", nullptr, 0))
        av_dict_set(&stream.metadata, "language", language->value, 0);
    av_dict_set(&stream.metadata, "title", upmixed.ch_layout.nb_channels == 6 ? "5.1 (Tarn)" : "3.0 (Tarn)", 0);
    upmixedIndex = stream.index;
}

/// Gives tracks their titles as names of their handlers: MP4 has no titles, and players show these names.
void OutputFilm::nameHandlers()
{
    for (unsigned index = 0; index < format->nb_streams; ++index) {
        AVDictionary*& tags = format->streams[index]->metadata;
        if (const AVDictionaryEntry* const title = av_dict_get(tags, "title", nullptr, 0))
            av_dict_set(&tags, "handler_name", title->value, 0);
    }
}

void OutputFilm::copyChapters()
{
    const AVFormatContext& from = input.context();
    auto* const chapters =
        static_cast<AVChapter**>(av_calloc(from.nb_chapters == 0 ? 1 : from.nb_chapters, sizeof(AVChapter*)));
    format->chapters = allocated(chapters);
    for (unsigned i = 0; i < from.nb_chapters; ++i) {
        const AVChapter& chapter = *from.chapters[i];
        auto* const copied = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
        chapters[i] = allocated(copied);
        format->nb_chapters = i + 1;
        copied->id = chapter.id;
        copied->time_base = chapter.time_base;
        const std::int64_t later = av_rescale_q(addedSeconds, {1, 1}, chapter.time_base);
        copied->start = av_sat_add64(chapter.start, later);
        copied->end = av_sat_add64(chapter.end, later);
        checked(av_dict_copy(&copied->metadata, chapter.metadata, 0), EX_SOFTWARE, path);
    }
}

void OutputFilm::write(AVPacket& packet, AVRational timeBase, const AVStream& to)
{
    // Time stamps of Opus in Matroska include the codec's delay, which the demuxer subtracts and the muxer does not
    // add.
    if (isMatroska() && to.codecpar->codec_id == AV_CODEC_ID_OPUS) {
        const AVRational sampleTime = {1, to.codecpar->sample_rate};
        const std::int64_t delay = av_rescale_q(to.codecpar->initial_padding, sampleTime, timeBase);
        if (packet.pts != AV_NOPTS_VALUE) packet.pts = av_sat_add64(packet.pts, delay);
        if (packet.dts != AV_NOPTS_VALUE) packet.dts = av_sat_add64(packet.dts, delay);
    }
    av_packet_rescale_ts(&packet, timeBase, to.time_base);
    raiseTimes(packet, to);
    packet.stream_index = to.index;
    packet.pos = -1;
    const int error = av_interleaved_write_frame(format, &packet);
    throwIfInterrupted();
    if (writeError != 0) file.failToWrite(writeError, "writing failed");
    checked(error, EX_DATAERR, path + ": " + descriptionOf(to) + " cannot be written");
}

/// Raises a decoding time that the muxer would refuse. Rounding can make two of them equal.
void OutputFilm::raiseTimes(AVPacket& packet, const AVStream& to)
{
    if (packet.dts == AV_NOPTS_VALUE) return;
    std::int64_t& last = lastTimes[static_cast<unsigned>(to.index)];
    const bool canRepeat = (format->oformat->flags & AVFMT_TS_NONSTRICT) != 0 ||
                           to.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE ||
                           to.codecpar->codec_type == AVMEDIA_TYPE_DATA;
    if (last != AV_NOPTS_VALUE) packet.dts = std::max(packet.dts, av_sat_add64(last, canRepeat ? 0 : 1));
    if (packet.pts != AV_NOPTS_VALUE) packet.pts = std::max(packet.pts, packet.dts);
    last = packet.dts;
}

int OutputFilm::writeBytes(void* self, std::uint8_t* bytes, int count)
{
    auto& film = *static_cast<OutputFilm*>(self);
    const int error = writeAll(film.file.descriptor(), bytes, static_cast<std::size_t>(count));
    if (error == 0) return count;
    film.writeError = error;
    return AVERROR(error);
}

std::int64_t OutputFilm::seek(void* self, std::int64_t offset, int whence)
{
    const auto& film = *static_cast<OutputFilm*>(self);
    if ((whence & AVSEEK_SIZE) != 0) {
        struct stat status = {};
        return fstat(film.file.descriptor(), &status) == 0 ? status.st_size : AVERROR(errno);
    }
    const off_t place = lseek(film.file.descriptor(), offset, whence & ~AVSEEK_FORCE);
    return place < 0 ? AVERROR(errno) : place;
}

} // namespace tarn
