// The LADSPA plug-ins: two inputs to three outputs; and three to three, for hosts that need as many inputs as outputs.
// SPDX-License-Identifier: MIT
#include "stream/gain.h"
#include "stream/upmix_stream.h"

#include <ladspa.h>

#include <cstdint>
#include <exception>
#include <iterator>
#include <limits>

namespace
{

/// The ports of both plug-ins. The plug-in with two inputs has no kUnusedInput.
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

/// The three arrays that describe the ports to LADSPA.
template <unsigned kCount>
struct Ports
{
    LADSPA_PortDescriptor descriptors[kCount];
    const char* names[kCount];
    LADSPA_PortRangeHint hints[kCount];
};

// ladspa.h requires bounds of integers that are slightly wider than the range.
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
     {kBounded | LADSPA_HINT_DEFAULT_0, zrk_tarn::kMinGainDb, zrk_tarn::kMaxGainDb},
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

/// An instance: the stream, and the memory that the host connected to each port, or null.
struct Instance
{
    zrk_tarn::UpmixStream stream;
    LADSPA_Data* memory[kPorts] = {};
    LADSPA_Data gainDb = 0; ///< of the stream
};

/// The value of a control, or the default if the port is not connected.
LADSPA_Data control(const Instance& instance, Port port, LADSPA_Data defaultValue) noexcept
{
    return instance.memory[port] == nullptr ? defaultValue : *instance.memory[port];
}

/// Creates an instance; null for a rate that the engine does not support.
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
    if (port < kPorts) static_cast<Instance*>(handle)->memory[port] = location;
}

/// Connects a port of the plug-in with two inputs.
void connectPortOfTwo(LADSPA_Handle handle, unsigned long port, LADSPA_Data* location)
{
    if (port < kPorts - 1) connectPort(handle, port < kUnusedInput ? port : port + 1, location);
}

/// Clears the signal of the instance.
void activate(LADSPA_Handle handle)
{
    static_cast<Instance*>(handle)->stream.reset();
}

/// Applies the controls and upmixes. Controls that are NaN have their default value.
void run(LADSPA_Handle handle, unsigned long frames)
{
    Instance& instance = *static_cast<Instance*>(handle);
    instance.stream.setBypass(control(instance, kOn, 1) <= 0);
    instance.stream.setMode(control(instance, kMode, 1) >= 1.5f ? zrk_tarn::SteeringMode::Calm
                                                                : zrk_tarn::SteeringMode::Fast);
    if (const LADSPA_Data gainDb = control(instance, kGain, 0); gainDb != instance.gainDb) {
        instance.stream.setMakeUpGain(zrk_tarn::gainFactor(static_cast<double>(gainDb)));
        instance.gainDb = gainDb;
    }
    if (instance.memory[kLatency] != nullptr) *instance.memory[kLatency] = kLatencyFrames;

    instance.stream.processPlanar(instance.memory + kLeftInput, instance.memory + kLeftOutput, frames);
}

/// Frees an instance.
void cleanup(LADSPA_Handle handle)
{
    delete static_cast<Instance*>(handle);
}

/// Describes a plug-in. Ids below 1000 need no registration, and LADSPA has no registry any more. Hosts identify
/// plug-ins by file and label.
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
