// Feeds frames to the engine and removes its delay.
// SPDX-License-Identifier: MIT
#include "cli/upmixer.h"

#include "host/zrk_tarn_processor.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>

namespace tarn
{

namespace
{

constexpr std::size_t kChunkFrames = 4096;

/// A sample as the bytes of a little-endian integer.
template <typename Integer>
void storeLittleEndian(std::uint8_t* bytes, Integer sample) noexcept
{
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(bytes, &sample, sizeof sample); // compilers store several at a time
    } else {
        storePcm(bytes, sample, sizeof sample);
    }
}

/// The reverse.
template <typename Integer>
Integer loadLittleEndian(const std::uint8_t* bytes) noexcept
{
    if constexpr (std::endian::native == std::endian::little) {
        Integer sample;
        std::memcpy(&sample, bytes, sizeof sample);
        return sample;
    } else {
        return static_cast<Integer>(loadLeftJustified(bytes, sizeof(Integer)) >> (32 - 8 * sizeof(Integer)));
    }
}

/// Calls work with the integer type of a stream's samples and their width.
template <typename Work>
void withSampleType(std::uint32_t bits, Work work) noexcept
{
    if (bits == 16) {
        work(std::int16_t{}, std::integral_constant<std::uint32_t, 16>{});
    } else if (bits == 24) {
        work(std::int32_t{}, std::integral_constant<std::uint32_t, 24>{});
    } else {
        work(std::int32_t{}, std::integral_constant<std::uint32_t, 32>{});
    }
}

/// Stores left-justified samples in the format of a stream.
void store(const std::int32_t* samples, std::size_t count, std::uint32_t bits, std::uint8_t* bytes) noexcept
{
    withSampleType(bits, [=](auto type, auto width) {
        using Sample = decltype(type);
        constexpr std::uint32_t kShift = 32 - width;
        std::int32_t united = 0;
        for (std::size_t i = 0; i < count; ++i) united |= samples[i];
        if ((united & ((std::int32_t{1} << kShift) - 1)) == 0) { // the usual case: nothing to round
            for (std::size_t i = 0; i < count; ++i)
                storeLittleEndian(bytes + i * sizeof(Sample), static_cast<Sample>(samples[i] >> kShift));
            return;
        }
        for (std::size_t i = 0; i < count; ++i)
            storeLittleEndian(bytes + i * sizeof(Sample), static_cast<Sample>(toWidth(samples[i], width)));
    });
}

/// Loads such samples.
void load(const std::uint8_t* bytes, std::size_t count, std::uint32_t bits, std::int32_t* samples) noexcept
{
    withSampleType(bits, [=](auto type, auto width) {
        using Sample = decltype(type);
        for (std::size_t i = 0; i < count; ++i)
            samples[i] = leftJustified(loadLittleEndian<Sample>(bytes + i * sizeof(Sample)), width);
    });
}

/// Bytes of a sample in the format of a stream: 24 bits have 4, which take less time than 3.
std::size_t streamBytes(StreamFormat format) noexcept
{
    return format.bits == 16 ? 2 : 4;
}

zrk_tarn::StreamConfiguration configurationOf(const Layout& layout, StreamFormat format, const EngineSettings& settings)
{
    using zrk_tarn::SampleFormat;
    zrk_tarn::StreamConfiguration configuration{
        .sampleRateHz = format.sampleRate,
        .format = format.bits == 16   ? SampleFormat::S16
                  : format.bits == 24 ? SampleFormat::S24In32
                                      : SampleFormat::S32,
        .outputSlots = layout.slots,
        .outputs = layout.outputs,
        .mode = settings.mode,
        .limiter = settings.room.limiter,
    };
    if (layout.remapped) configuration.remap = settings.remap;
    for (zrk_tarn::OutputSlot& slot : configuration.outputs) {
        using enum zrk_tarn::OutputSlot::Source;
        const bool isOff =
            (slot.source == Surround && !settings.room.surroundDb) || (slot.source == Lfe && !settings.room.lfeDb);
        if (isOff) slot = {};
    }
    return configuration;
}

} // namespace

Upmixer::Upmixer(const Layout& layout, StreamFormat streamFormat, const EngineSettings& settings, bool align,
                 AudioSink& outputSink)
    : format(streamFormat),
      sink(outputSink),
      slots(layout.slots),
      stream(configurationOf(layout, streamFormat, settings)),
      stereoBytes(kChunkFrames * 2 * streamBytes(format)),
      slotBytes(kChunkFrames * slots * streamBytes(format)),
      samples(kChunkFrames * slots),
      toSkip(zrk_tarn::UpmixStream::latencyFrames(configurationOf(layout, streamFormat, settings)) -
             (align ? 0 : zrk_tarn_processor_t::kDelayFrames))
{
    zrk_tarn::applySettings(settings.room, stream);
    stream.setBypass(settings.bypass);
}

void Upmixer::push(const std::int32_t* stereo, std::size_t frames)
{
    while (frames > 0) {
        const std::size_t chunk = std::min(frames, kChunkFrames);
        store(stereo, 2 * chunk, format.bits, stereoBytes.data());
        stream.process(stereoBytes.data(), slotBytes.data(), chunk);
        consumed += chunk;
        deliver(chunk);
        stereo += 2 * chunk;
        frames -= chunk;
    }
}

void Upmixer::finish()
{
    // Drains only the frames that are due, so that later samples do not count as clipped.
    while (delivered < consumed) {
        const std::uint64_t due = toSkip + (consumed - delivered);
        deliver(stream.drain(slotBytes.data(), static_cast<std::size_t>(std::min<std::uint64_t>(due, kChunkFrames))));
    }
}

/// Writes the processed frames that belong to the input: none before its first, none after its last.
void Upmixer::deliver(std::size_t frames)
{
    const auto skipped = static_cast<std::size_t>(std::min<std::uint64_t>(frames, toSkip));
    const auto due = static_cast<std::size_t>(std::min<std::uint64_t>(frames - skipped, consumed - delivered));
    toSkip -= skipped;
    delivered += due;
    if (due == 0) return;
    load(slotBytes.data() + skipped * slots * streamBytes(format), due * slots, format.bits, samples.data());
    sink.write(samples.data(), due);
}

} // namespace tarn
