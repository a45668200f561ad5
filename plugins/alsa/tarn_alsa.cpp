// An ALSA PCM that upmixes the stereo it plays to 3.0 or 5.1 on its slave.
// SPDX-License-Identifier: MIT
#include "stream/gain.h"
#include "stream/steering_mode_names.h"
#include "stream/upmix_stream.h"

#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string>

namespace
{

constexpr unsigned kInputChannels = 2;
constexpr unsigned kMaxChannels = 6;
constexpr std::size_t kMaxSampleBytes = 4;
constexpr snd_pcm_uframes_t kChunkFrames = 256; ///< processed at a time

/// A layout of the slave, with ALSA's order of channels.
struct Layout
{
    const char* name;
    double number; ///< of the name, which ALSA parses as a number if it is not quoted
    unsigned channels;
    std::array<zrk_tarn::OutputSlot, 8> slots;
};

using Source = zrk_tarn::OutputSlot::Source;
constexpr Layout kLayouts[] = {
    {"3.0", 3.0, 3, {{{Source::Engine, 0}, {Source::Engine, 1}, {Source::Engine, 2}}}}, // FL FR FC
    {"5.1",
     5.1,
     6,
     {{{Source::Engine, 0}, {Source::Engine, 1}, {}, {}, {Source::Engine, 2}, {}}}}}; // FL FR RL RR FC LFE

constexpr unsigned kFormats[] = {SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_S24_3LE, SND_PCM_FORMAT_S32_LE};

zrk_tarn::SampleFormat sampleFormat(snd_pcm_format_t format) noexcept
{
    if (format == SND_PCM_FORMAT_S16_LE) return zrk_tarn::SampleFormat::S16;
    if (format == SND_PCM_FORMAT_S24_3LE) return zrk_tarn::SampleFormat::S24;
    return zrk_tarn::SampleFormat::S32;
}

/// The fields of a configuration.
struct Settings
{
    snd_config_t* slave = nullptr;
    const Layout* layout = &kLayouts[0];
    bool enabled = true;
    zrk_tarn::SteeringMode mode = zrk_tarn::SteeringMode::Fast;
    double gainDb = 0.0;
};

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
                                                      .mode = pcm.settings.mode};
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
    pcm.stream->setMakeUpGain(zrk_tarn::gainFactor(pcm.settings.gainDb));
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

/// The layout of a name; null if there is none.
const Layout* layoutOf(const snd_config_t* node)
{
    const char* name = nullptr;
    double number = 0.0;
    if (snd_config_get_string(node, &name) < 0 && snd_config_get_ireal(node, &number) < 0) return nullptr;
    for (const Layout& layout : kLayouts)
        if (name != nullptr ? std::strcmp(name, layout.name) == 0 : std::abs(number - layout.number) < 0.01)
            return &layout;
    return nullptr;
}

/// Reads one field. Returns false, with a message in the log, if its name or value is wrong.
bool readField(snd_config_t* node, const char* id, Settings& settings)
{
    const std::string field = id;
    if (field == "comment" || field == "type" || field == "hint") return true;
    if (field == "slave") {
        settings.slave = node;
        return true;
    }
    if (field == "layout") {
        settings.layout = layoutOf(node);
        if (settings.layout == nullptr) SNDERR("tarn: layout has to be \"3.0\" or \"5.1\"");
        return settings.layout != nullptr;
    }
    if (field == "enabled") {
        const int value = snd_config_get_bool(node);
        if (value < 0) SNDERR("tarn: enabled has to be true or false");
        settings.enabled = value > 0;
        return value >= 0;
    }
    if (field == "mode") {
        const char* name = "";
        snd_config_get_string(node, &name);
        const auto mode = zrk_tarn::steeringModeNamed(name);
        if (!mode) SNDERR("tarn: mode has to be fast or calm");
        settings.mode = mode.value_or(settings.mode);
        return mode.has_value();
    }
    if (field == "gain") {
        const bool valid = snd_config_get_ireal(node, &settings.gainDb) >= 0 &&
                           settings.gainDb >= zrk_tarn::kMinGainDb && settings.gainDb <= zrk_tarn::kMaxGainDb;
        if (!valid) SNDERR("tarn: gain has to be %.0f to %.0f, in dB", zrk_tarn::kMinGainDb, zrk_tarn::kMaxGainDb);
        return valid;
    }
    SNDERR("tarn: there is no field %s; there are slave, layout, enabled, mode and gain", id);
    return false;
}

/// Reads a configuration. Returns nothing, with a message in the log, if it is wrong.
std::optional<Settings> readSettings(const snd_config_t* configuration)
{
    Settings settings;
    snd_config_iterator_t at = nullptr;
    snd_config_iterator_t next = nullptr;
    snd_config_for_each(at, next, configuration)
    {
        snd_config_t* const node = snd_config_iterator_entry(at);
        const char* id = nullptr;
        if (snd_config_get_id(node, &id) >= 0 && !readField(node, id, settings)) return std::nullopt;
    }
    if (settings.slave == nullptr) {
        SNDERR("tarn: slave is missing: the PCM that plays the %s", settings.layout->name);
        return std::nullopt;
    }
    return settings;
}

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

/// Opens a PCM of type tarn.
int open(snd_pcm_t** result, const char* name, snd_config_t* root, const snd_config_t* configuration,
         snd_pcm_stream_t direction, int mode)
{
    if (direction != SND_PCM_STREAM_PLAYBACK) {
        SNDERR("tarn: only plays; record from another PCM");
        return -EINVAL;
    }
    const std::optional<Settings> settings = readSettings(configuration);
    if (!settings) return -EINVAL;
    const Nesting nesting;
    if (Nesting::isEndless()) {
        SNDERR("tarn: the slave of this PCM plays to this PCM again; name a device as slave.pcm, such as \"hw:0\"");
        return -ELOOP;
    }

    auto owned = std::make_unique<Pcm>();
    Pcm& pcm = *owned;
    pcm.settings = *settings;
    pcm.plug.version = SND_PCM_EXTPLUG_VERSION;
    pcm.plug.name = "Tarn upmix";
    pcm.plug.callback = &kCallbacks;
    pcm.plug.private_data = &pcm;
    if (const int error = snd_pcm_extplug_create(&pcm.plug, name, root, settings->slave, direction, mode); error < 0)
        return error;
    static_cast<void>(owned.release()); // ALSA frees it with the callback close

    const bool constrained =
        snd_pcm_extplug_set_param(&pcm.plug, SND_PCM_EXTPLUG_HW_CHANNELS, kInputChannels) >= 0 &&
        snd_pcm_extplug_set_slave_param(&pcm.plug, SND_PCM_EXTPLUG_HW_CHANNELS, settings->layout->channels) >= 0 &&
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
    } catch (const std::exception&) {
        return -ENOMEM;
    }
}

SND_PCM_PLUGIN_SYMBOL(tarn)
}
#pragma GCC visibility pop
