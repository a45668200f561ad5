// Feeds frames to the engine and removes its delay.
// SPDX-License-Identifier: MIT
#include "cli/upmixer.h"

#include "host/zrk_tarn_processor.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace tarn
{

namespace
{

constexpr std::size_t kChunkFrames = 4096;

/// Stores left-justified samples in a width, little-endian.
void store(const std::int32_t* samples, std::size_t count, std::uint32_t bits, std::uint8_t* bytes) noexcept
{
    if (bits == 32 && std::endian::native == std::endian::little) {
        std::memcpy(bytes, samples, count * sizeof *samples);
        return;
    }
    const std::uint32_t width = bits / 8;
    for (std::size_t i = 0; i < count; ++i) storePcm(bytes + i * width, toWidth(samples[i], bits), width);
}

/// Loads such samples.
void load(const std::uint8_t* bytes, std::size_t count, std::uint32_t bits, std::int32_t* samples) noexcept
{
    if (bits == 32 && std::endian::native == std::endian::little) {
        std::memcpy(samples, bytes, count * sizeof *samples);
        return;
    }
    const std::uint32_t width = bits / 8;
    for (std::size_t i = 0; i < count; ++i) samples[i] = loadLeftJustified(bytes + i * width, width);
}

zrk_tarn::StreamConfiguration configurationOf(const Layout& layout, StreamFormat format, const EngineSettings& settings)
{
    using zrk_tarn::SampleFormat;
    zrk_tarn::StreamConfiguration configuration{
        .sampleRateHz = format.sampleRate,
        .format = format.bits == 16   ? SampleFormat::S16
                  : format.bits == 24 ? SampleFormat::S24
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
      stereoBytes(kChunkFrames * 2 * streamFormat.bytesPerSample()),
      slotBytes(kChunkFrames * slots * streamFormat.bytesPerSample()),
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
    load(slotBytes.data() + skipped * slots * format.bytesPerSample(), due * slots, format.bits, samples.data());
    sink.write(samples.data(), due);
}

} // namespace tarn
