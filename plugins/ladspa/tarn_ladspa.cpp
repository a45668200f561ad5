#include "stream/upmix_stream.h"

#include <ladspa.h>

#include <cmath>
#include <cstdint>
#include <exception>
#include <iterator>
#include <limits>

/// @file
/// Tarn as LADSPA plug-ins: two inputs to three outputs, and the same with a third input for hosts that want as many
/// inputs as outputs.

namespace
{

/// The ports of both plug-ins. The one with two inputs leaves kUnusedInput out.
enum Port : unsigned
{
    kLeftInput,
    kRightInput,
    kUnusedInput,
    kLeftOutput,
    kRightOutput,
    kCentreOutput,
    kOn,
    kMode,
    kGain,
    kLatency,
    kPorts
};

constexpr LADSPA_PortDescriptor kAudioIn = LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO;
constexpr LADSPA_PortDescriptor kAudioOut = LADSPA_PORT_OUTPUT | LADSPA_PORT_AUDIO;
constexpr LADSPA_PortDescriptor kControlIn = LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL;
constexpr LADSPA_PortDescriptor kControlOut = LADSPA_PORT_OUTPUT | LADSPA_PORT_CONTROL;

constexpr LADSPA_PortRangeHintDescriptor kBounded = LADSPA_HINT_BOUNDED_BELOW | LADSPA_HINT_BOUNDED_ABOVE;
constexpr auto kLatencyFrames = static_cast<LADSPA_Data>(zrk_tarn::UpmixStream::latencyFrames());

/// The table of ports that LADSPA wants as three arrays.
template <unsigned kCount>
struct Ports
{
    LADSPA_PortDescriptor descriptors[kCount];
    const char* names[kCount];
    LADSPA_PortRangeHint hints[kCount];
};

// Bounds of integers are wider than their range, as ladspa.h asks for.
constexpr Ports<kPorts> kThreeInputs = {
    {kAudioIn, kAudioIn, kAudioIn, kAudioOut, kAudioOut, kAudioOut, kControlIn, kControlIn, kControlIn, kControlOut},
    {"Left", "Right", "Unused", "Front left", "Front right", "Front centre", "Upmix", "Mode (1 fast, 2 calm)",
     "Make-up gain (dB)", "latency"},
    {{0, 0, 0},
     {0, 0, 0},
     {0, 0, 0},
     {0, 0, 0},
     {0, 0, 0},
     {0, 0, 0},
     {LADSPA_HINT_TOGGLED | LADSPA_HINT_DEFAULT_1, 0, 0},
     {kBounded | LADSPA_HINT_INTEGER | LADSPA_HINT_DEFAULT_1, 0.9f, 2.1f},
     {kBounded | LADSPA_HINT_DEFAULT_0, -60, 18},
     {kBounded | LADSPA_HINT_INTEGER | LADSPA_HINT_DEFAULT_MAXIMUM, 0, kLatencyFrames}}};

/// The same ports without the unused one.
constexpr Ports<kPorts - 1> withoutUnusedInput(const Ports<kPorts>& all)
{
    Ports<kPorts - 1> ports{};
    for (unsigned from = 0, to = 0; from < kPorts; ++from) {
        if (from == kUnusedInput) continue;
        ports.descriptors[to] = all.descriptors[from];
        ports.names[to] = all.names[from];
        ports.hints[to++] = all.hints[from];
    }
    return ports;
}

constexpr Ports<kPorts - 1> kTwoInputs = withoutUnusedInput(kThreeInputs);

/// A plug-in in use: the stream, and where the host keeps what belongs to each port, or null.
struct Instance
{
    zrk_tarn::UpmixStream stream;
    LADSPA_Data* at[kPorts] = {};
    LADSPA_Data gainDb = 0; ///< that the stream has
};

/// A control as the host has set it, or the default where it has connected nothing.
LADSPA_Data control(const Instance& instance, Port port, LADSPA_Data byDefault) noexcept
{
    return instance.at[port] == nullptr ? byDefault : *instance.at[port];
}

/// Makes an instance; none for a rate that the engine has not.
LADSPA_Handle instantiate(const LADSPA_Descriptor*, unsigned long sampleRate)
{
    if (sampleRate > std::numeric_limits<std::uint32_t>::max()) return nullptr;
    try {
        return new Instance{zrk_tarn::UpmixStream({.sampleRateHz = static_cast<std::uint32_t>(sampleRate)})};
    } catch (const std::exception&) {
        return nullptr;
    }
}

/// Connects a port of the plug-in with three inputs.
void connectPort(LADSPA_Handle handle, unsigned long port, LADSPA_Data* location)
{
    if (port < kPorts) static_cast<Instance*>(handle)->at[port] = location;
}

/// Connects a port of the plug-in with two inputs.
void connectPortOfTwo(LADSPA_Handle handle, unsigned long port, LADSPA_Data* location)
{
    connectPort(handle, port < kUnusedInput ? port : port + 1, location);
}

/// Makes the instance as new.
void activate(LADSPA_Handle handle)
{
    static_cast<Instance*>(handle)->stream.reset();
}

/// Takes the controls over, those that are no number as the default, and upmixes.
void run(LADSPA_Handle handle, unsigned long frames)
{
    Instance& instance = *static_cast<Instance*>(handle);
    instance.stream.setBypass(control(instance, kOn, 1) <= 0);
    instance.stream.setMode(control(instance, kMode, 1) >= 1.5f ? zrk_tarn::SteeringMode::Calm
                                                                : zrk_tarn::SteeringMode::Fast);
    if (const LADSPA_Data gainDb = control(instance, kGain, 0); gainDb != instance.gainDb) {
        instance.stream.setMakeUpGain(static_cast<float>(std::pow(10.0, static_cast<double>(gainDb) / 20.0)));
        instance.gainDb = gainDb;
    }
    if (instance.at[kLatency] != nullptr) *instance.at[kLatency] = kLatencyFrames;

    instance.stream.processPlanar(instance.at + kLeftInput, instance.at + kLeftOutput, frames);
}

/// Ends an instance.
void cleanup(LADSPA_Handle handle)
{
    delete static_cast<Instance*>(handle);
}

/// Describes a plug-in. LADSPA has no registry any more; below 1000 anybody may take a number without one, and hosts
/// tell plug-ins apart by file and label.
template <unsigned kCount>
constexpr LADSPA_Descriptor described(const Ports<kCount>& ports, unsigned long id, const char* label, const char* name,
                                      void (*connect)(LADSPA_Handle, unsigned long, LADSPA_Data*))
{
    return {.UniqueID = id,
            .Label = label,
            .Properties = LADSPA_PROPERTY_HARD_RT_CAPABLE,
            .Name = name,
            .Maker = "The Tarn authors",
            .Copyright = "MIT",
            .PortCount = kCount,
            .PortDescriptors = ports.descriptors,
            .PortNames = ports.names,
            .PortRangeHints = ports.hints,
            .ImplementationData = nullptr,
            .instantiate = instantiate,
            .connect_port = connect,
            .activate = activate,
            .run = run,
            .run_adding = nullptr,
            .set_run_adding_gain = nullptr,
            .deactivate = nullptr,
            .cleanup = cleanup};
}

constexpr LADSPA_Descriptor kDescriptors[] = {
    described(kTwoInputs, 641, "tarn_upmix", "Tarn upmix, stereo to 3.0", connectPortOfTwo),
    described(kThreeInputs, 642, "tarn_upmix_3", "Tarn upmix, stereo to 3.0 (third input unused)", connectPort)};

} // namespace

extern "C" [[gnu::visibility("default")]] const LADSPA_Descriptor* ladspa_descriptor(unsigned long index)
{
    return index < std::size(kDescriptors) ? &kDescriptors[index] : nullptr;
}
