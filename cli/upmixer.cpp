// Feeds frames to the engine and removes its delay.
// SPDX-License-Identifier: MIT
#include "cli/upmixer.h"

#include "host/zrk_tarn_processor.h"

#include <algorithm>

namespace tarn
{

namespace
{

constexpr std::size_t kChunkFrames = 4096;

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
    const std::uint32_t bytes = format.bytesPerSample();
    while (frames > 0) {
        const std::size_t chunk = std::min(frames, kChunkFrames);
        for (std::size_t i = 0; i < 2 * chunk; ++i)
            storePcm(&stereoBytes[i * bytes], toWidth(stereo[i], format.bits), bytes);
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
    const std::uint32_t bytes = format.bytesPerSample();
    const std::uint8_t* const first = slotBytes.data() + skipped * slots * bytes;
    for (std::size_t i = 0; i < due * slots; ++i) samples[i] = loadLeftJustified(first + i * bytes, bytes);
    sink.write(samples.data(), due);
}

} // namespace tarn
