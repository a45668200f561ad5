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
    };
    if (layout.remapped) configuration.remap = settings.remap;
    return configuration;
}

} // namespace

Upmixer::Upmixer(const Layout& layout, StreamFormat streamFormat, const EngineSettings& settings, bool align,
                 AudioSink& outputSink)
    : format(streamFormat),
      sink(outputSink),
      frameBytes(std::size_t{layout.slots} * streamFormat.bytesPerSample()),
      stream(configurationOf(layout, streamFormat, settings)),
      stereoBytes(kChunkFrames * 2 * streamFormat.bytesPerSample()),
      slots(kChunkFrames * frameBytes),
      toSkip(zrk_tarn::UpmixStream::latencyFrames() - (align ? 0 : zrk_tarn_processor_t::kDelayFrames))
{
    stream.setMakeUpGain(settings.gain);
    stream.setBypass(settings.bypass);
}

void Upmixer::push(const std::int32_t* stereo, std::size_t frames)
{
    const std::uint32_t bytes = format.bytesPerSample();
    while (frames > 0) {
        const std::size_t taken = std::min(frames, kChunkFrames);
        for (std::size_t i = 0; i < 2 * taken; ++i)
            storePcm(&stereoBytes[i * bytes], toWidth(stereo[i], format.bits), bytes);
        stream.process(stereoBytes.data(), slots.data(), taken);
        consumed += taken;
        deliver(taken);
        stereo += 2 * taken;
        frames -= taken;
    }
}

void Upmixer::finish()
{
    // No more than is due: what comes later is not to be counted as clipped.
    while (delivered < consumed) {
        const std::uint64_t due = toSkip + (consumed - delivered);
        deliver(stream.drain(slots.data(), static_cast<std::size_t>(std::min<std::uint64_t>(due, kChunkFrames))));
    }
}

/// Writes the processed frames that are due: neither before the first of the input nor after its last.
void Upmixer::deliver(std::size_t frames)
{
    const auto skipped = static_cast<std::size_t>(std::min<std::uint64_t>(frames, toSkip));
    const auto due = static_cast<std::size_t>(std::min<std::uint64_t>(frames - skipped, consumed - delivered));
    toSkip -= skipped;
    delivered += due;
    if (due > 0) sink.write(slots.data() + skipped * frameBytes, due);
}

} // namespace tarn
