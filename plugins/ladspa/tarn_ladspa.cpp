// The LADSPA plug-ins.
// SPDX-License-Identifier: MIT
#include "plugins/common/instance.h"

#include <ladspa.h>

#include <array>
#include <cstdint>
#include <exception>
#include <iterator>
#include <limits>

namespace
{

using namespace tarn_plugins;

constexpr LADSPA_PortDescriptor kAudioIn = LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO;
constexpr LADSPA_PortDescriptor kAudioOut = LADSPA_PORT_OUTPUT | LADSPA_PORT_AUDIO;
constexpr LADSPA_PortDescriptor kControlIn = LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL;
constexpr LADSPA_PortDescriptor kControlOut = LADSPA_PORT_OUTPUT | LADSPA_PORT_CONTROL;

/// What LADSPA says about a port.
struct PortText
{
    LADSPA_PortDescriptor descriptor;
    const char* name;
    LADSPA_PortRangeHint hint = {};
};

/// A hint with bounds and a default. LADSPA has few defaults: numbers such as 0 and 1, the bounds, and values between
/// the bounds. Bounds that cannot express the default do not compile.
constexpr LADSPA_PortRangeHint bounded(float lower, float upper, float defaultValue)
{
    constexpr LADSPA_PortRangeHintDescriptor kBounded = LADSPA_HINT_BOUNDED_BELOW | LADSPA_HINT_BOUNDED_ABOVE;
    if (defaultValue == 0.0f) return {kBounded | LADSPA_HINT_DEFAULT_0, lower, upper};
    if (defaultValue == 1.0f) return {kBounded | LADSPA_HINT_DEFAULT_1, lower, upper};
    if (defaultValue == upper) return {kBounded | LADSPA_HINT_DEFAULT_MAXIMUM, lower, upper};
    if (defaultValue == 0.25f * lower + 0.75f * upper) return {kBounded | LADSPA_HINT_DEFAULT_HIGH, lower, upper};
    throw "LADSPA has no hint for this default";
}

/// The same for integers. ladspa.h requires bounds that are slightly wider than their range.
constexpr LADSPA_PortRangeHint integer(float lowest, float highest, float defaultValue)
{
    LADSPA_PortRangeHint hint = bounded(lowest - 0.1f, highest + 0.1f, defaultValue);
    hint.HintDescriptor |= LADSPA_HINT_INTEGER;
    return hint;
}

constexpr LADSPA_PortRangeHint toggled(float defaultValue)
{
    return {LADSPA_HINT_TOGGLED | (defaultValue > 0.0f ? LADSPA_HINT_DEFAULT_1 : LADSPA_HINT_DEFAULT_0), 0, 0};
}

// The lower bounds in dB are chosen such that LADSPA can express the defaults of +3, +6 and -3 dB.
constexpr float kMinGainDb = -42.0f;
constexpr float kMinDialogueDb = -12.0f;
constexpr float kSilentSurroundDb = -48.0f;

constexpr PortText controlText(Port control, const Layout& layout)
{
    constexpr auto kMaxChannelGainDb = static_cast<float>(zrk_tarn::kMaxChannelGainDb);
    const float value = defaultOf(control, layout);
    switch (control) {
    case kEnabled:
        return {kControlIn, "Upmix", toggled(value)};
    case kPreset:
        return {kControlIn, "Preset (0 the controls below, 1 film, 2 music, 3 voice, 4 plain)",
                integer(0, std::size(zrk_tarn::kPresets), value)};
    case kGain:
        return {kControlIn, "Make-up gain (dB)",
                bounded(layout.isDialogue() ? static_cast<float>(zrk_tarn::kMinGainDb) : kMinGainDb,
                        zrk_tarn::kMaxGainDb, value)};
    case kLimiter:
        return {kControlIn, "Limiter", toggled(value)};
    case kCentre:
        return {kControlIn, "Centre (dB)",
                bounded(layout.isDialogue() ? kMinDialogueDb : static_cast<float>(zrk_tarn::kMinGainDb),
                        kMaxChannelGainDb, value)};
    case kWidth:
        return {kControlIn, "Width of the centre", bounded(0, 1, value)};
    case kBass:
        return {kControlIn, "Bass in the fronts", toggled(value)};
    case kSurrounds:
        return {kControlIn, "Surrounds (dB, -48 off)", bounded(kSilentSurroundDb, kMaxChannelGainDb, value)};
    default:
        return {kControlIn, "Mode (1 fast, 2 calm)", integer(1, 2, value)};
    }
}

constexpr PortText textOf(Port port, const Layout& layout)
{
    if (port == kLeftIn) return {kAudioIn, "Left"};
    if (port == kRightIn) return {kAudioIn, "Right"};
    if (port == kUnused) return {kAudioIn, "Unused"};
    if (port < kEnabled) return {kAudioOut, layout.channels[port - kOutput].name};
    if (port == kLatency) {
        PortText text = {kControlOut, "latency", bounded(0, Instance::kLatencyFrames, Instance::kLatencyFrames)};
        text.hint.HintDescriptor |= LADSPA_HINT_INTEGER;
        return text;
    }
    return controlText(port, layout);
}

/// A plug-in, and the arrays that describe its ports to LADSPA.
struct LadspaPlugin
{
    Plugin plugin;
    const char* names[kPorts];
    LADSPA_PortDescriptor descriptors[kPorts];
    LADSPA_PortRangeHint hints[kPorts];
};

constexpr LadspaPlugin pluginOf(const Layout& layout, std::size_t inputs)
{
    PortList ports = audioPorts(layout, inputs - 2);
    for (const Port control : {kEnabled, kMode, kPreset, kGain, kLimiter, kCentre, kWidth, kBass, kSurrounds})
        if (hasControl(layout, control)) ports.add(control);
    ports.add(kLatency);

    LadspaPlugin result{.plugin = {layout, ports, kSilentSurroundDb}, .names = {}, .descriptors = {}, .hints = {}};
    for (std::size_t i = 0; i < ports.count; ++i) {
        const PortText text = textOf(ports.ports[i], layout);
        result.descriptors[i] = text.descriptor;
        result.names[i] = text.name;
        result.hints[i] = text.hint;
    }
    return result;
}

constexpr LadspaPlugin kPlugins[] = {pluginOf(kLayout30, 2), pluginOf(kLayout30, 3), pluginOf(kLayout51, 2),
                                     pluginOf(kLayout51, 5), pluginOf(kLayout71, 2), pluginOf(kLayout71, 7),
                                     pluginOf(kLayout20, 2)};

/// Creates an instance; null for a rate that the engine does not support.
LADSPA_Handle instantiate(const LADSPA_Descriptor* descriptor, unsigned long sampleRate)
{
    if (sampleRate > std::numeric_limits<std::uint32_t>::max()) return nullptr;
    try {
        return new Instance(*static_cast<const Plugin*>(descriptor->ImplementationData),
                            static_cast<std::uint32_t>(sampleRate));
    } catch (const std::exception&) {
        return nullptr;
    }
}

void connectPort(LADSPA_Handle handle, unsigned long port, LADSPA_Data* location)
{
    static_cast<Instance*>(handle)->connect(port, location);
}

void activate(LADSPA_Handle handle)
{
    static_cast<Instance*>(handle)->activate();
}

void run(LADSPA_Handle handle, unsigned long frames)
{
    static_cast<Instance*>(handle)->run(frames);
}

void cleanup(LADSPA_Handle handle)
{
    delete static_cast<Instance*>(handle);
}

/// Describes a plug-in. Ids below 1000 need no registration, and LADSPA has no registry any more. Hosts identify
/// plug-ins by file and label.
constexpr LADSPA_Descriptor described(const LadspaPlugin& plugin, unsigned long id, const char* label, const char* name)
{
    return {.UniqueID = id,
            .Label = label,
            .Properties = LADSPA_PROPERTY_HARD_RT_CAPABLE,
            .Name = name,
            .Maker = "The Tarn authors",
            .Copyright = "MIT",
            .PortCount = plugin.plugin.ports.count,
            .PortDescriptors = plugin.descriptors,
            .PortNames = plugin.names,
            .PortRangeHints = plugin.hints,
            .ImplementationData = const_cast<Plugin*>(&plugin.plugin), // only read
            .instantiate = instantiate,
            .connect_port = connectPort,
            .activate = activate,
            .run = run,
            .run_adding = nullptr,
            .set_run_adding_gain = nullptr,
            .deactivate = nullptr,
            .cleanup = cleanup};
}

constexpr LADSPA_Descriptor kDescriptors[] = {
    described(kPlugins[0], 641, "tarn_upmix", "Tarn upmix, stereo to 3.0"),
    described(kPlugins[1], 642, "tarn_upmix_3", "Tarn upmix, stereo to 3.0 (third input unused)"),
    described(kPlugins[2], 643, "tarn_upmix51", "Tarn upmix, stereo to 5.1 without LFE"),
    described(kPlugins[3], 644, "tarn_upmix51_5", "Tarn upmix, stereo to 5.1 without LFE (three inputs unused)"),
    described(kPlugins[4], 645, "tarn_upmix71", "Tarn upmix, stereo to 7.1 without LFE"),
    described(kPlugins[5], 646, "tarn_upmix71_7", "Tarn upmix, stereo to 7.1 without LFE (five inputs unused)"),
    described(kPlugins[6], 647, "tarn_dialogue", "Tarn dialogue, louder or softer voices in stereo")};

} // namespace

extern "C" [[gnu::visibility("default")]] const LADSPA_Descriptor* ladspa_descriptor(unsigned long index)
{
    return index < std::size(kDescriptors) ? &kDescriptors[index] : nullptr;
}
