// Decodes a stereo track into samples without gaps.
// SPDX-License-Identifier: MIT
#include "film/track_decoder.h"

#include <algorithm>
#include <utility>

extern "C" {
#include <libavutil/mathematics.h>
}

namespace tarn
{

namespace
{

/// Time stamps that differ by less from the sound before are rounded ones.
constexpr double kTolerance = 0.005; // seconds
constexpr std::int64_t kToleranceTicks = 2;

constexpr std::int64_t kSilenceFrames = 65536; ///< at a time

/// Bits of a decoder's samples: those of the file, or 32 for floats.
std::uint32_t bitsOf(const AVCodecContext& decoder)
{
    const AVSampleFormat format = av_get_packed_sample_fmt(decoder.sample_fmt);
    if (format == AV_SAMPLE_FMT_U8 || format == AV_SAMPLE_FMT_S16) return 16;
    if (format == AV_SAMPLE_FMT_S32 && decoder.bits_per_raw_sample > 0 && decoder.bits_per_raw_sample <= 24) return 24;
    return 32;
}

} // namespace

TrackDecoder::TrackDecoder(const std::string& film, const AVStream& stream, std::uint32_t rateHz, Consumer consumer)
    : name(film + ": track " + std::to_string(stream.index)), consume(std::move(consumer)), timeBase(stream.time_base)
{
    const AVCodec* const codec = avcodec_find_decoder(stream.codecpar->codec_id);
    if (codec == nullptr)
        throw Failure(EX_DATAERR, name + ": there is no decoder for " + avcodec_get_name(stream.codecpar->codec_id));
    decoder = allocated(Codec(avcodec_alloc_context3(codec)));
    checked(avcodec_parameters_to_context(decoder.get(), stream.codecpar), EX_DATAERR, name);
    decoder->pkt_timebase = timeBase; // without it, priming is not removed
    checked(avcodec_open2(decoder.get(), codec, nullptr), EX_DATAERR, name);
    rate = rateHz != 0 ? rateHz : static_cast<std::uint32_t>(decoder->sample_rate);
    bits = bitsOf(*decoder);
}

void TrackDecoder::decode(const AVPacket* packet)
{
    const int result = avcodec_send_packet(decoder.get(), packet);
    if (result < 0 && packet != nullptr) ++decodeErrors;
    receiveFrames();
    if (packet == nullptr) convert(nullptr);
}

void TrackDecoder::receiveFrames()
{
    while (true) {
        const int result = avcodec_receive_frame(decoder.get(), decoded.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
        if (result < 0) {
            ++decodeErrors;
            return;
        }
        if (decoded->ch_layout.nb_channels != 2) {
            ++decodeErrors;
            continue;
        }
        if (!resampler || decoded->sample_rate != inputRate) openResampler(*decoded);
        align(*decoded);
        convert(decoded.get());
    }
}

/// Compares the time stamp with the end of the sound before.
void TrackDecoder::align(const AVFrame& frame)
{
    const std::int64_t pts = frame.best_effort_timestamp;
    const AVRational frameTime = {1, frame.sample_rate};
    if (!firstFrame) {
        firstPts = pts != AV_NOPTS_VALUE ? pts : 0;
        firstFrame = av_rescale_q(firstPts, timeBase, {1, static_cast<int>(rate)});
    }
    if (pts == AV_NOPTS_VALUE) return;
    const std::int64_t due = av_rescale_q(pts - firstPts, timeBase, frameTime);
    const std::int64_t missing = due - inputFrames;
    const std::int64_t tick = av_rescale_q(kToleranceTicks, timeBase, frameTime);
    const auto tolerated = std::max(tick, static_cast<std::int64_t>(kTolerance * frame.sample_rate));
    if (missing < -tolerated) toDrop = -missing;
    if (missing <= tolerated) return;

    // Silence goes through the resampler too, so that it stays as long as the gap.
    for (std::int64_t left = missing; left > 0;) {
        const Frame silence = newFrame();
        silence->format = frame.format;
        silence->sample_rate = frame.sample_rate;
        silence->nb_samples = static_cast<int>(std::min<std::int64_t>(left, kSilenceFrames));
        checked(av_channel_layout_copy(&silence->ch_layout, &frame.ch_layout), EX_SOFTWARE, name);
        checked(av_frame_get_buffer(silence.get(), 0), EX_SOFTWARE, name);
        av_samples_set_silence(silence->extended_data, 0, silence->nb_samples, 2,
                               static_cast<AVSampleFormat>(silence->format));
        convert(silence.get());
        filled += silence->nb_samples;
        left -= silence->nb_samples;
    }
}

/// Converts a frame, or what the resampler still holds.
void TrackDecoder::convert(const AVFrame* frame)
{
    if (!resampler) return;
    int frames = frame != nullptr ? frame->nb_samples : 0;
    const std::uint8_t* planes[2] = {};
    if (frame != nullptr) {
        const auto dropped = static_cast<int>(std::min<std::int64_t>(toDrop, frames));
        toDrop -= dropped;
        frames -= dropped;
        if (frames == 0) return;
        const auto format = static_cast<AVSampleFormat>(frame->format);
        const int stride = av_get_bytes_per_sample(format) * (av_sample_fmt_is_planar(format) != 0 ? 1 : 2);
        const int count = av_sample_fmt_is_planar(format) != 0 ? 2 : 1;
        for (int plane = 0; plane < count; ++plane) planes[plane] = frame->extended_data[plane] + dropped * stride;
        inputFrames += frames;
    }
    const int capacity = swr_get_out_samples(resampler.get(), frames);
    checked(capacity, EX_SOFTWARE, name);
    samples.resize(2 * static_cast<std::size_t>(capacity) + 2);
    auto* output = reinterpret_cast<std::uint8_t*>(samples.data());
    const int converted =
        checked(swr_convert(resampler.get(), &output, capacity, frame != nullptr ? planes : nullptr, frames),
                EX_SOFTWARE, name);
    if (converted > 0) consume(samples.data(), static_cast<std::size_t>(converted));
}

void TrackDecoder::openResampler(const AVFrame& frame)
{
    if (resampler) {
        convert(nullptr);
        inputFrames = av_rescale(inputFrames, frame.sample_rate, inputRate);
    }
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    SwrContext* opened = nullptr;
    checked(swr_alloc_set_opts2(&opened, &stereo, AV_SAMPLE_FMT_S32, static_cast<int>(rate), &stereo,
                                static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr),
            EX_SOFTWARE, name);
    resampler.reset(opened);
    if (frame.sample_rate != static_cast<int>(rate)) av_opt_set(opened, "resampler", "soxr", 0);
    if (swr_init(opened) < 0) {
        av_opt_set(opened, "resampler", "swr", 0); // FFmpeg without libsoxr
        checked(swr_init(opened), EX_SOFTWARE, name);
    }
    inputRate = frame.sample_rate;
}

} // namespace tarn
