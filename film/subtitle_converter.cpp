// Converts subtitles of text for MP4.
// SPDX-License-Identifier: MIT
#include "film/subtitle_converter.h"

#include <algorithm>

namespace tarn
{

namespace
{

constexpr std::size_t kMaxTextBytes = 1 << 16;

/// A decoded subtitle.
struct Subtitle
{
    AVSubtitle value{};

    Subtitle() = default;
    Subtitle(const Subtitle&) = delete;
    Subtitle& operator=(const Subtitle&) = delete;
    ~Subtitle() { avsubtitle_free(&value); }
};

} // namespace

bool SubtitleConverter::canConvert(AVCodecID codec) noexcept
{
    const AVCodecDescriptor* const descriptor = avcodec_descriptor_get(codec);
    return descriptor != nullptr && (descriptor->props & AV_CODEC_PROP_TEXT_SUB) != 0 &&
           avcodec_find_decoder(codec) != nullptr && avcodec_find_encoder(AV_CODEC_ID_MOV_TEXT) != nullptr;
}

SubtitleConverter::SubtitleConverter(const std::string& film, const AVStream& from)
    : name(film + ": subtitle track " + std::to_string(from.index)), text(kMaxTextBytes)
{
    const AVCodec* const decoderCodec = avcodec_find_decoder(from.codecpar->codec_id);
    decoder = allocated(Codec(avcodec_alloc_context3(decoderCodec)));
    checked(avcodec_parameters_to_context(decoder.get(), from.codecpar), EX_DATAERR, name);
    decoder->pkt_timebase = from.time_base;
    checked(avcodec_open2(decoder.get(), decoderCodec, nullptr), EX_DATAERR, name);

    const AVCodec* const encoderCodec = avcodec_find_encoder(AV_CODEC_ID_MOV_TEXT);
    encoder = allocated(Codec(avcodec_alloc_context3(encoderCodec)));
    encoder->time_base = from.time_base;
    // The decoder's header of styles, which the encoder frees.
    encoder->subtitle_header =
        static_cast<std::uint8_t*>(allocated(av_mallocz(static_cast<std::size_t>(decoder->subtitle_header_size) + 1)));
    encoder->subtitle_header_size = decoder->subtitle_header_size;
    std::copy_n(decoder->subtitle_header, decoder->subtitle_header_size, encoder->subtitle_header);
    checked(avcodec_open2(encoder.get(), encoderCodec, nullptr), EX_SOFTWARE, name);
}

bool SubtitleConverter::convert(AVPacket& packet)
{
    Subtitle subtitle;
    int hasText = 0;
    if (avcodec_decode_subtitle2(decoder.get(), &subtitle.value, &hasText, &packet) < 0 || hasText == 0) return false;
    const int bytes =
        avcodec_encode_subtitle(encoder.get(), text.data(), static_cast<int>(text.size()), &subtitle.value);
    if (bytes <= 0) return false;

    const Packet converted = newPacket();
    checked(av_new_packet(converted.get(), bytes), EX_SOFTWARE, name);
    std::copy_n(text.data(), bytes, converted->data);
    converted->pts = converted->dts = packet.pts;
    converted->duration = packet.duration;
    converted->stream_index = packet.stream_index;
    converted->flags = AV_PKT_FLAG_KEY;
    av_packet_unref(&packet);
    av_packet_move_ref(&packet, converted.get());
    return true;
}

} // namespace tarn
