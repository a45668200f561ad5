// Encodes the upmixed track.
// SPDX-License-Identifier: MIT
#include "film/track_encoder.h"

#include <algorithm>
#include <utility>

namespace tarn
{

namespace
{

/// Length of the packets of lossless codecs. Matroska's clock counts milliseconds; packets of whole milliseconds keep
/// their exact times, at every rate of the engine. FLAC allows 96 ms.
constexpr int kLosslessMilliseconds = 80;

AVChannelLayout channelsOf(const Layout& layout, const Encoding& encoding)
{
    // Tarn's slots have the order of FFmpeg's channels.
    if (layout.slots == 3) return AV_CHANNEL_LAYOUT_SURROUND;
    if (encoding.sides) return AV_CHANNEL_LAYOUT_5POINT1;
    return AV_CHANNEL_LAYOUT_5POINT1_BACK;
}

/// The codec's format with the most precision that the samples need.
AVSampleFormat sampleFormatOf(const AVCodec& codec, std::uint32_t bits)
{
    AVSampleFormat best = codec.sample_fmts[0];
    for (const AVSampleFormat* format = codec.sample_fmts; *format != AV_SAMPLE_FMT_NONE; ++format) {
        const AVSampleFormat packed = av_get_packed_sample_fmt(*format);
        if (packed == AV_SAMPLE_FMT_FLT) return *format;
        if (packed == (bits <= 16 ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32)) best = *format;
    }
    return best;
}

} // namespace

TrackEncoder::TrackEncoder(const std::string& film, const Encoding& encoding, const Layout& layout, StreamFormat format,
                           std::optional<std::int64_t> bitRate, int dialogueLevel, bool globalHeader, Consumer consumer)
    : name(film), consume(std::move(consumer)), channels(channelsOf(layout, encoding)), slots(layout.slots)
{
    const bool isPcm16 = encoding.bitRate == 0 && std::string(encoding.name) == "pcm" && format.bits == 16;
    const AVCodec* const codec = avcodec_find_encoder_by_name(isPcm16 ? "pcm_s16le" : encoding.encoder);
    encoder = allocated(Codec(avcodec_alloc_context3(codec)));
    checked(av_channel_layout_copy(&encoder->ch_layout, &channels), EX_SOFTWARE, name);
    encoder->sample_rate = static_cast<int>(format.sampleRate);
    encoder->sample_fmt = sampleFormatOf(*codec, format.bits);
    encoder->time_base = {1, encoder->sample_rate};
    const std::int64_t defaultRate = encoding.bitRate * (slots == 3 ? 3 : 6) / 6;
    if (encoding.bitRate == 0) {
        encoder->bits_per_raw_sample = static_cast<int>(std::min(format.bits, 24u));
        encoder->frame_size = encoder->sample_rate * kLosslessMilliseconds / 1000;
    } else {
        encoder->bit_rate = 1000 * bitRate.value_or(defaultRate);
    }
    if (globalHeader) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (encoding.hasDialogueLevel) av_opt_set_int(encoder->priv_data, "dialnorm", dialogueLevel, 0);
    const std::int64_t wanted = encoding.bitRate != 0 ? encoder->bit_rate : 0;
    const int error = avcodec_open2(encoder.get(), codec, nullptr);
    // Some codecs choose another rate instead of an error.
    if (error < 0 || (wanted != 0 && encoder->bit_rate != wanted))
        throw Failure(EX_USAGE, "--bitrate " + std::to_string(wanted / 1000) + ": " + encoding.name + " with " +
                                    std::to_string(slots) + " channels at " + std::to_string(format.sampleRate) +
                                    " Hz has no such rate; the default is " + std::to_string(defaultRate));

    // PCM has no frame size of its own.
    packetFrames = encoder->frame_size > 0 ? encoder->frame_size : encoder->sample_rate * kLosslessMilliseconds / 1000;

    SwrContext* opened = nullptr;
    checked(swr_alloc_set_opts2(&opened, &channels, encoder->sample_fmt, encoder->sample_rate, &channels,
                                AV_SAMPLE_FMT_S32, encoder->sample_rate, 0, nullptr),
            EX_SOFTWARE, name);
    converter.reset(opened);
    checked(swr_init(opened), EX_SOFTWARE, name);
}

void TrackEncoder::write(const std::int32_t* samples, std::size_t frames)
{
    waiting.insert(waiting.end(), samples, samples + frames * slots);
    std::size_t used = 0;
    const std::size_t packetSamples = static_cast<std::size_t>(packetFrames) * slots;
    for (; waiting.size() - used >= packetSamples; used += packetSamples) encode(waiting.data() + used, packetFrames);
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(used));
}

void TrackEncoder::finish()
{
    // Not every codec returns what it delays when it is flushed.
    const std::vector<std::int32_t> silence(slots * static_cast<std::size_t>(std::max(encoder->initial_padding, 0)));
    if (!silence.empty()) write(silence.data(), silence.size() / slots);
    if (!waiting.empty()) encode(waiting.data(), static_cast<int>(waiting.size() / slots));
    send(nullptr);
}

/// Converts frames to the codec's format, and encodes them.
void TrackEncoder::encode(const std::int32_t* samples, int frames)
{
    const Frame frame = newFrame();
    frame->format = encoder->sample_fmt;
    frame->sample_rate = encoder->sample_rate;
    frame->nb_samples = frames;
    frame->pts = nextFrame;
    checked(av_channel_layout_copy(&frame->ch_layout, &channels), EX_SOFTWARE, name);
    checked(av_frame_get_buffer(frame.get(), 0), EX_SOFTWARE, name);
    const auto* input = reinterpret_cast<const std::uint8_t*>(samples);
    checked(swr_convert(converter.get(), frame->extended_data, frames, &input, frames), EX_SOFTWARE, name);
    nextFrame += frames;
    send(frame.get());
}

/// Sends a frame to the codec, or null to flush it, and passes its packets on.
void TrackEncoder::send(const AVFrame* frame)
{
    checked(avcodec_send_frame(encoder.get(), frame), EX_SOFTWARE, name);
    while (avcodec_receive_packet(encoder.get(), packet.get()) >= 0) {
        consume(*packet);
        av_packet_unref(packet.get());
    }
}

} // namespace tarn
