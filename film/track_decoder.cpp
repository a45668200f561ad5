// Decodes a stereo track into samples without gaps.
// SPDX-License-Identifier: MIT
#include "film/track_decoder.h"

#include "cli/gain_stage.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <span>
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

constexpr double kMaxSeconds = 1e7;      ///< larger time stamps are damaged
constexpr double kShortGap = 10.0;       ///< seconds; a longer one must end before the film does
constexpr double kMaxGap = 3600.0;       ///< seconds, if the length of the film is not known
constexpr double kLookAhead = 0.25;      ///< seconds of sound that wait for later time stamps
constexpr double kMaxJitter = 0.05;      ///< seconds; a longer jump is a gap or an overlap
constexpr double kRepeatedSeconds = 1.0; ///< a longer overlap is not sound that was sent twice

constexpr std::int64_t kSilenceFrames = 65536; ///< at a time
constexpr std::int64_t kMaxPacketSeconds = 10; ///< a longer duration of a packet is damaged

bool isFloat(int sampleFormat)
{
    const AVSampleFormat format = av_get_packed_sample_fmt(static_cast<AVSampleFormat>(sampleFormat));
    return format == AV_SAMPLE_FMT_FLT || format == AV_SAMPLE_FMT_DBL;
}

/// Bits of a decoder's samples: those of the file, or 32 for floats.
std::uint32_t bitsOf(const AVCodecContext& decoder)
{
    const AVSampleFormat format = av_get_packed_sample_fmt(decoder.sample_fmt);
    if (format == AV_SAMPLE_FMT_U8 || format == AV_SAMPLE_FMT_S16) return 16;
    if (format == AV_SAMPLE_FMT_S32 && decoder.bits_per_raw_sample > 0 && decoder.bits_per_raw_sample <= 24) return 24;
    return 32;
}

/// Frames at the rate of a frame.
std::int64_t framesOf(std::int64_t ticks, AVRational timeBase, const AVFrame& frame)
{
    return av_rescale_q(ticks, timeBase, {1, frame.sample_rate});
}

} // namespace

TrackDecoder::TrackDecoder(const std::string& film, const AVStream& stream, const TrackConversion& conversion,
                           Consumer consumer)
    : name(film + ": track " + std::to_string(stream.index)),
      consume(std::move(consumer)),
      timeBase(stream.time_base),
      headroomBits(conversion.headroomBits),
      scale(std::ldexp(1.0 / conversion.peak, -headroomBits)),
      endSeconds(conversion.endSeconds)
{
    const AVCodec* const codec = avcodec_find_decoder(stream.codecpar->codec_id);
    if (codec == nullptr)
        throw Failure(EX_DATAERR, name + ": there is no decoder for " + avcodec_get_name(stream.codecpar->codec_id));
    decoder = allocated(Codec(avcodec_alloc_context3(codec)));
    checked(avcodec_parameters_to_context(decoder.get(), stream.codecpar), EX_DATAERR, name);
    decoder->pkt_timebase = timeBase; // without it, priming is not removed
    checked(avcodec_open2(decoder.get(), codec, nullptr), EX_DATAERR, name);
    rate = conversion.rateHz != 0 ? conversion.rateHz : static_cast<std::uint32_t>(decoder->sample_rate);
    bits = bitsOf(*decoder);
    if (rate != static_cast<std::uint32_t>(stream.codecpar->sample_rate)) bits = std::max(bits, 24u);
    exceeds = canExceedFullScale(stream, rate);
}

bool TrackDecoder::canExceedFullScale(const AVStream& stream, std::uint32_t rateHz) noexcept
{
    return isFloat(stream.codecpar->format) || rateHz != static_cast<std::uint32_t>(stream.codecpar->sample_rate);
}

void TrackDecoder::decode(const AVPacket* packet)
{
    const std::uint64_t before = found.damagedPackets;
    isChanged = false;
    const bool isRefused = avcodec_send_packet(decoder.get(), packet) < 0;
    receiveFrames();
    if (packet == nullptr) {
        while (!waiting.empty()) releaseFirst();
        convert(nullptr);
        return;
    }
    const bool isFailed = isRefused || found.damagedPackets > before;
    const bool isCorrupt = (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
    if (!isFailed && !isCorrupt && !isChanged) return;
    if (isFailed || isCorrupt) found.damagedPackets = before + 1;
    markDamage(inputFrames + waitingFrames);
    const std::int64_t duration =
        std::clamp<std::int64_t>(packet->duration, 0, av_rescale_q(kMaxPacketSeconds, {1, 1}, timeBase));
    if (isFailed || isChanged) {
        lostAtEnd += duration;
    } else {
        found.uncertain += static_cast<std::uint64_t>(av_rescale_q(duration, timeBase, {1, static_cast<int>(rate)}));
    }
}

void TrackDecoder::receiveFrames()
{
    while (true) {
        const int result = avcodec_receive_frame(decoder.get(), decoded.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
        if (result < 0) {
            ++found.damagedPackets;
            return;
        }
        if (decoded->ch_layout.nb_channels != 2) {
            noteChange(*decoded);
            continue;
        }
        if (decoded->sample_rate <= 0) {
            ++found.damagedPackets;
            continue;
        }
        lostAtEnd = 0;
        waiting.push_back(newFrame());
        av_frame_move_ref(waiting.back().get(), decoded.get());
        waitingFrames += waiting.back()->nb_samples;
        longestFrame = std::max(longestFrame, waiting.back()->nb_samples);
        while (waiting.size() > 1 && static_cast<double>(waitingFrames - waiting.front()->nb_samples) >
                                         kLookAhead * waiting.front()->sample_rate)
            releaseFirst();
    }
}

/// Keeps the first frame that is not stereo.
void TrackDecoder::noteChange(const AVFrame& frame)
{
    isChanged = true;
    if (found.change) return;
    const double seconds = static_cast<double>(timeOf(frame).value_or(0)) * av_q2d(timeBase);
    found.change = ChannelChange{.channels = frame.ch_layout.nb_channels, .seconds = seconds};
}

/// The time of a frame in ticks; none if it has none, or one that cannot be.
std::optional<std::int64_t> TrackDecoder::timeOf(const AVFrame& frame) const
{
    const std::int64_t pts = frame.best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE || std::abs(static_cast<double>(pts) * av_q2d(timeBase)) > kMaxSeconds)
        return std::nullopt;
    return pts;
}

/// Converts the first frame that waits, at the time of its stamp unless later ones contradict it.
void TrackDecoder::releaseFirst()
{
    const Frame first = std::move(waiting.front());
    waiting.pop_front();
    waitingFrames -= first->nb_samples;
    AVFrame& frame = *first;
    std::optional<std::int64_t> time = timeOf(frame);
    const auto nextTime = !waiting.empty() ? timeOf(*waiting.front()) : std::nullopt;
    if (time && firstFrame) {
        const std::int64_t jump = framesOf(*time - firstPts, timeBase, frame) - inputFrames;
        if (isContradicted(frame, *time, jump, nextTime) || isJitter(frame, jump)) time.reset();
    } else if (time && nextTime && isNextTooEarly(frame, *time, *nextTime)) {
        time = *nextTime - av_rescale_q(frame.nb_samples, {1, frame.sample_rate}, timeBase);
    }
    if (!resampler || frame.sample_rate != inputRate || frame.format != inputFormat) openResampler(frame);
    align(frame, time);
    convert(&frame);
}

/// Whether a frame overlaps the next one.
bool TrackDecoder::isNextTooEarly(const AVFrame& frame, std::int64_t time, std::int64_t nextTime) const
{
    return framesOf(nextTime - time, timeBase, frame) < frame.nb_samples - toleranceOf(frame);
}

/// Whether the next frame takes a jump back.
bool TrackDecoder::isContradicted(const AVFrame& frame, std::int64_t time, std::int64_t jump,
                                  std::optional<std::int64_t> nextTime) const
{
    const std::int64_t tolerance = toleranceOf(frame);
    if (!nextTime) return false;
    if (jump > tolerance) return isNextTooEarly(frame, time, *nextTime);
    return jump < -tolerance && jump + framesOf(*nextTime - time, timeBase, frame) >= frame.nb_samples - tolerance;
}

/// Whether the jump of a frame is short, and a later frame is where it would be without the jump: Ogg and its muxers
/// misplace single packets. At the end of a track, where no later frame shows that, a jump of less than the longest
/// frame counts.
bool TrackDecoder::isJitter(const AVFrame& frame, std::int64_t jump) const
{
    if (std::abs(jump) <= toleranceOf(frame) || static_cast<double>(std::abs(jump)) > kMaxJitter * frame.sample_rate)
        return false;
    std::int64_t due = inputFrames + frame.nb_samples;
    for (const Frame& later : waiting) {
        if (later->sample_rate != frame.sample_rate) return false;
        const std::optional<std::int64_t> time = timeOf(*later);
        if (time && std::abs(framesOf(*time - firstPts, timeBase, frame) - due) <= toleranceOf(frame)) return true;
        due += later->nb_samples;
    }
    const bool isAtEnd = static_cast<double>(waitingFrames) <= kLookAhead * frame.sample_rate;
    return isAtEnd && std::abs(jump) < longestFrame;
}

std::int64_t TrackDecoder::toleranceOf(const AVFrame& frame) const
{
    return std::max(framesOf(kToleranceTicks, timeBase, frame),
                    static_cast<std::int64_t>(kTolerance * frame.sample_rate));
}

/// Compares the time of a frame with the end of the sound before.
void TrackDecoder::align(const AVFrame& frame, std::optional<std::int64_t> time)
{
    if (!firstFrame) {
        firstPts = time.value_or(0);
        firstFrame = av_rescale_q(firstPts, timeBase, {1, static_cast<int>(rate)});
    }
    if (!time) return;
    const std::int64_t missing = framesOf(*time - firstPts, timeBase, frame) - inputFrames;
    toDrop = 0;
    if (missing < -toleranceOf(frame)) {
        toDrop = -missing;
        if (static_cast<double>(toDrop) <= kRepeatedSeconds * frame.sample_rate) return;
        markDamage(inputFrames);
        found.skipped += atOutputRate(std::min<std::int64_t>(toDrop, frame.nb_samples));
    } else if (missing > toleranceOf(frame) && isGapPossible(missing, *time, frame)) {
        markDamage(inputFrames);
        found.silenced += atOutputRate(missing);
        fill(frame, missing);
    }
}

/// Whether a gap ends before the film does. Damaged time stamps can be years away.
bool TrackDecoder::isGapPossible(std::int64_t frames, std::int64_t time, const AVFrame& frame) const
{
    const double seconds = static_cast<double>(frames) / frame.sample_rate;
    if (seconds <= kShortGap) return true;
    return endSeconds ? static_cast<double>(time) * av_q2d(timeBase) <= *endSeconds + kShortGap : seconds <= kMaxGap;
}

/// Converts silence. It goes through the resampler too, so that it stays as long as the gap.
void TrackDecoder::fill(const AVFrame& like, std::int64_t frames)
{
    while (frames > 0) {
        const Frame silence = newFrame();
        silence->format = like.format;
        silence->sample_rate = like.sample_rate;
        silence->nb_samples = static_cast<int>(std::min<std::int64_t>(frames, kSilenceFrames));
        checked(av_channel_layout_copy(&silence->ch_layout, &like.ch_layout), EX_SOFTWARE, name);
        checked(av_frame_get_buffer(silence.get(), 0), EX_SOFTWARE, name);
        av_samples_set_silence(silence->extended_data, 0, silence->nb_samples, 2,
                               static_cast<AVSampleFormat>(silence->format));
        convert(silence.get());
        frames -= silence->nb_samples;
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
    const int capacity = checked(swr_get_out_samples(resampler.get(), frames), EX_SOFTWARE, name);
    samples.resize(2 * static_cast<std::size_t>(capacity) + 2);
    if (exceeds) wide.resize(samples.size());
    auto* output =
        exceeds ? reinterpret_cast<std::uint8_t*>(wide.data()) : reinterpret_cast<std::uint8_t*>(samples.data());
    const int converted =
        checked(swr_convert(resampler.get(), &output, capacity, frame != nullptr ? planes : nullptr, frames),
                EX_SOFTWARE, name);
    if (converted == 0) return;
    const std::size_t count = 2 * static_cast<std::size_t>(converted);
    if (exceeds)
        scaleSamples(count);
    else
        addHeadroom(std::span(samples).first(count), headroomBits);
    consume(samples.data(), count / 2);
}

/// Converts samples that can exceed full scale. What is not a number becomes silence.
void TrackDecoder::scaleSamples(std::size_t count)
{
    constexpr double kRounding = 0x1p-40; // of the scale
    std::uint64_t strange = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (!std::isfinite(wide[i])) {
            wide[i] = 0.0;
            ++strange;
        }
        largest = std::max(largest, std::abs(wide[i]));
        const double sample = wide[i] * scale;
        if (std::abs(sample) > 1.0 + kRounding) ++clipped;
        samples[i] = fromFullScale(sample);
    }
    if (strange == 0) return;
    markDamage(inputFrames);
    found.silenced += (strange + 1) / 2;
}

void TrackDecoder::openResampler(const AVFrame& frame)
{
    if (resampler) {
        convert(nullptr);
        inputFrames = av_rescale(inputFrames, frame.sample_rate, inputRate);
    }
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    SwrContext* opened = nullptr;
    checked(swr_alloc_set_opts2(&opened, &stereo, exceeds ? AV_SAMPLE_FMT_DBL : AV_SAMPLE_FMT_S32,
                                static_cast<int>(rate), &stereo, static_cast<AVSampleFormat>(frame.format),
                                frame.sample_rate, 0, nullptr),
            EX_SOFTWARE, name);
    resampler.reset(opened);
    if (frame.sample_rate != static_cast<int>(rate)) av_opt_set(opened, "resampler", "soxr", 0);
    if (swr_init(opened) < 0) {
        av_opt_set(opened, "resampler", "swr", 0); // FFmpeg without libsoxr
        checked(swr_init(opened), EX_SOFTWARE, name);
    }
    inputRate = frame.sample_rate;
    inputFormat = frame.format;
}

std::uint64_t TrackDecoder::atOutputRate(std::int64_t frames) const
{
    return static_cast<std::uint64_t>(av_rescale(frames, static_cast<std::int64_t>(rate), inputRate));
}

/// Keeps the time of the first damage.
void TrackDecoder::markDamage(std::int64_t place)
{
    if (!found.firstFrame)
        found.firstFrame =
            firstFrame.value_or(0) + (inputRate > 0 ? static_cast<std::int64_t>(atOutputRate(place)) : 0);
}

TrackDamage TrackDecoder::damage() const noexcept
{
    TrackDamage damage = found;
    damage.missingAtEnd = static_cast<std::uint64_t>(av_rescale_q(lostAtEnd, timeBase, {1, static_cast<int>(rate)}));
    return damage;
}

} // namespace tarn
