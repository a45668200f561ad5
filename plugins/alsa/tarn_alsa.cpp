// An ALSA PCM that upmixes the stereo it plays to the layout of its slave.
// SPDX-License-Identifier: MIT
#include "settings.h"

#include "stream/upmix_stream.h"

#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>

namespace
{

using tarn_alsa::kMaxChannels;
using tarn_alsa::Settings;

constexpr unsigned kInputChannels = 2;
constexpr std::size_t kMaxSampleBytes = 4;
constexpr snd_pcm_uframes_t kChunkFrames = 256; ///< processed at a time

constexpr unsigned kFormats[] = {SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_S24_3LE, SND_PCM_FORMAT_S32_LE};

zrk_tarn::SampleFormat sampleFormat(snd_pcm_format_t format) noexcept
{
    if (format == SND_PCM_FORMAT_S16_LE) return zrk_tarn::SampleFormat::S16;
    if (format == SND_PCM_FORMAT_S24_3LE) return zrk_tarn::SampleFormat::S24;
    return zrk_tarn::SampleFormat::S32;
}

/// A PCM of type tarn.
struct Pcm
{
    snd_pcm_extplug_t plug;
    Settings settings;
    std::optional<zrk_tarn::UpmixStream> stream; ///< none before format and rate are chosen
    // Interleaved copies, because the areas of program and slave can have any layout.
    alignas(8) std::byte input[kChunkFrames * kInputChannels * kMaxSampleBytes];
    alignas(8) std::byte output[kChunkFrames * kMaxChannels * kMaxSampleBytes];
};

Pcm& pcmOf(snd_pcm_extplug_t* plug) noexcept
{
    return *static_cast<Pcm*>(plug->private_data);
}

/// The areas of an interleaved buffer.
template <unsigned kChannels>
void interleavedAreas(std::byte* buffer, unsigned channels, unsigned sampleBits,
                      snd_pcm_channel_area_t (&areas)[kChannels]) noexcept
{
    for (unsigned channel = 0; channel < channels; ++channel)
        areas[channel] = {.addr = buffer, .first = channel * sampleBits, .step = channels * sampleBits};
}

/// Creates the stream for the format and rate that program and slave have agreed on.
int createStream(snd_pcm_extplug_t* plug, snd_pcm_hw_params_t*)
{
    Pcm& pcm = pcmOf(plug);
    const zrk_tarn::StreamConfiguration configuration{.sampleRateHz = plug->rate,
                                                      .format = sampleFormat(plug->format),
                                                      .outputSlots = pcm.settings.layout->channels,
                                                      .outputs = pcm.settings.layout->slots,
                                                      .mode = pcm.settings.mode,
                                                      .limiter = true};
    if (const char* const problem = zrk_tarn::UpmixStream::problemOf(configuration)) {
        SNDERR("tarn: %u Hz: %s", plug->rate, problem);
        return -EINVAL;
    }
    try {
        pcm.stream.emplace(configuration);
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    pcm.stream->setBypass(!pcm.settings.enabled);
    zrk_tarn::applySettings(pcm.settings.room, *pcm.stream);
    return 0;
}

/// Clears the stream; at prepare and reset.
int resetStream(snd_pcm_extplug_t* plug)
{
    pcmOf(plug).stream->reset();
    return 0;
}

/// Upmixes frames of the program into as many of the slave.
snd_pcm_sframes_t transfer(snd_pcm_extplug_t* plug, const snd_pcm_channel_area_t* to, snd_pcm_uframes_t toOffset,
                           const snd_pcm_channel_area_t* from, snd_pcm_uframes_t fromOffset, snd_pcm_uframes_t frames)
{
    Pcm& pcm = pcmOf(plug);
    const auto sampleBits = static_cast<unsigned>(snd_pcm_format_physical_width(plug->format));
    snd_pcm_channel_area_t input[kInputChannels];
    snd_pcm_channel_area_t output[kMaxChannels];
    interleavedAreas(pcm.input, plug->channels, sampleBits, input);
    interleavedAreas(pcm.output, plug->slave_channels, sampleBits, output);
    for (snd_pcm_uframes_t done = 0; done < frames;) {
        const snd_pcm_uframes_t count = std::min(frames - done, kChunkFrames);
        snd_pcm_areas_copy(input, 0, from, fromOffset + done, plug->channels, count, plug->format);
        pcm.stream->process(pcm.input, pcm.output, count);
        snd_pcm_areas_copy(to, toOffset + done, output, 0, plug->slave_channels, count, plug->format);
        done += count;
    }
    return static_cast<snd_pcm_sframes_t>(frames);
}

/// Frees a PCM.
int close(snd_pcm_extplug_t* plug)
{
    delete &pcmOf(plug);
    return 0;
}

/// The channel map of programs: left and right. Programs free it.
snd_pcm_chmap_t* channelMap(snd_pcm_extplug_t*)
{
    auto* const map =
        static_cast<snd_pcm_chmap_t*>(std::malloc(sizeof(snd_pcm_chmap_t) + kInputChannels * sizeof(unsigned)));
    if (map == nullptr) return nullptr;
    map->channels = kInputChannels;
    map->pos[0] = SND_CHMAP_FL;
    map->pos[1] = SND_CHMAP_FR;
    return map;
}

/// A list with this map only. Programs free it.
snd_pcm_chmap_query_t** channelMaps(snd_pcm_extplug_t*)
{
    auto** const maps = static_cast<snd_pcm_chmap_query_t**>(std::calloc(2, sizeof(snd_pcm_chmap_query_t*)));
    if (maps == nullptr) return nullptr;
    maps[0] = static_cast<snd_pcm_chmap_query_t*>(
        std::malloc(sizeof(snd_pcm_chmap_query_t) + kInputChannels * sizeof(unsigned)));
    if (maps[0] == nullptr) {
        std::free(maps);
        return nullptr;
    }
    maps[0]->type = SND_CHMAP_TYPE_FIXED;
    maps[0]->map.channels = kInputChannels;
    maps[0]->map.pos[0] = SND_CHMAP_FL;
    maps[0]->map.pos[1] = SND_CHMAP_FR;
    return maps;
}

constexpr snd_pcm_extplug_callback_t kCallbacks = {.transfer = transfer,
                                                   .close = close,
                                                   .hw_params = createStream,
                                                   .hw_free = nullptr,
                                                   .dump = nullptr,
                                                   .init = resetStream,
                                                   .query_chmaps = channelMaps,
                                                   .get_chmap = channelMap,
                                                   .set_chmap = nullptr};

/// Counts the PCMs of type tarn that a thread is opening, each as the slave of the one before it.
class Nesting
{
public:
    Nesting() noexcept { ++depth; }
    ~Nesting() { --depth; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

    /// Whether there are too many to be intended: one of them plays to itself.
    static bool isEndless() noexcept { return depth > kMaxDepth; }

private:
    static constexpr int kMaxDepth = 4;
    static inline thread_local int depth = 0;
};

/// Opens a PCM of type tarn. Throws as readSettings does.
int open(snd_pcm_t** result, const char* name, snd_config_t* root, const snd_config_t* configuration,
         snd_pcm_stream_t direction, int mode)
{
    if (direction != SND_PCM_STREAM_PLAYBACK) {
        SNDERR("tarn: only plays; record from another PCM");
        return -EINVAL;
    }
    const Settings settings = tarn_alsa::readSettings(configuration);
    const Nesting nesting;
    if (Nesting::isEndless()) {
        SNDERR("tarn: the slave of this PCM plays to this PCM again; name a device as slave.pcm, such as \"hw:0\"");
        return -ELOOP;
    }

    auto owned = std::make_unique<Pcm>();
    Pcm& pcm = *owned;
    pcm.settings = settings;
    pcm.plug.version = SND_PCM_EXTPLUG_VERSION;
    pcm.plug.name = "Tarn upmix";
    pcm.plug.callback = &kCallbacks;
    pcm.plug.private_data = &pcm;
    if (const int error = snd_pcm_extplug_create(&pcm.plug, name, root, settings.slave, direction, mode); error < 0)
        return error;
    static_cast<void>(owned.release()); // ALSA frees it with the callback close

    const bool constrained =
        snd_pcm_extplug_set_param(&pcm.plug, SND_PCM_EXTPLUG_HW_CHANNELS, kInputChannels) >= 0 &&
        snd_pcm_extplug_set_slave_param(&pcm.plug, SND_PCM_EXTPLUG_HW_CHANNELS, settings.layout->channels) >= 0 &&
        snd_pcm_extplug_set_param_list(&pcm.plug, SND_PCM_EXTPLUG_HW_FORMAT, std::size(kFormats), kFormats) >= 0 &&
        snd_pcm_extplug_set_slave_param_list(&pcm.plug, SND_PCM_EXTPLUG_HW_FORMAT, std::size(kFormats), kFormats) >=
            0 &&
        snd_pcm_extplug_set_param_link(&pcm.plug, SND_PCM_EXTPLUG_HW_FORMAT, 1) >= 0;
    if (!constrained) {
        snd_pcm_extplug_delete(&pcm.plug);
        return -ENOMEM;
    }
    *result = pcm.plug.pcm;
    return 0;
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {
SND_PCM_PLUGIN_DEFINE_FUNC(tarn)
{
    try {
        return open(pcmp, name, root, conf, stream, mode);
    } catch (const std::invalid_argument& invalid) {
        SNDERR("tarn: %s", invalid.what());
        return -EINVAL;
    } catch (const std::exception&) {
        return -ENOMEM;
    }
}

SND_PCM_PLUGIN_SYMBOL(tarn)
}
#pragma GCC visibility pop
