// The LV2 plug-in. tarn.ttl describes its ports.
// SPDX-License-Identifier: MIT
#include "stream/gain.h"
#include "stream/upmix_stream.h"

#include <lv2/core/lv2.h>
#include <lv2/core/lv2_util.h>
#include <lv2/log/log.h>
#include <lv2/log/logger.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>

namespace
{

using zrk_tarn::SteeringMode;
using zrk_tarn::StreamConfiguration;
using zrk_tarn::StreamMeters;
using zrk_tarn::UpmixStream;

/// Port indices, as in tarn.ttl.
enum Port : std::uint32_t
{
    kInLeft,
    kInRight,
    kOutLeft,
    kOutRight,
    kOutCentre,
    kEnabled,
    kMode,
    kGain,
    kLatency,
    kLeftRight, ///< of the lowest of 16 band groups
    kFrontBack = kLeftRight + std::size(StreamMeters{}.leftRight),
    kPorts = kFrontBack + std::size(StreamMeters{}.frontBack)
};

/// An instance: the stream, and the memory that the host connected to each port, or null.
class Upmix
{
public:
    /// Throws as UpmixStream does.
    explicit Upmix(const StreamConfiguration& configuration) : stream(configuration) {}

    /// Connects a port to memory, or disconnects it with null.
    void connect(std::uint32_t port, void* values) noexcept
    {
        if (port < kPorts) memory[port] = static_cast<float*>(values);
    }

    /// Clears the signal, as LV2 requires.
    void activate() noexcept { stream.reset(); }

    /// Applies the controls and upmixes. Controls that are NaN have their default value.
    void run(std::uint32_t frames) noexcept
    {
        stream.setBypass(control(kEnabled, 1.0f) <= 0.0f);
        stream.setMode(control(kMode, 1.0f) >= 1.5f ? SteeringMode::Calm : SteeringMode::Fast);
        setGain(control(kGain, 0.0f));

        const float* const input[] = {memory[kInLeft], memory[kInRight]};
        float* const output[] = {memory[kOutLeft], memory[kOutRight], memory[kOutCentre]};
        stream.processPlanar(input, output, frames);

        show(kLatency, static_cast<float>(UpmixStream::latencyFrames()));
        const StreamMeters meters = stream.meters();
        for (std::uint32_t group = 0; group < std::size(meters.leftRight); ++group) {
            show(kLeftRight + group, meters.leftRight[group]);
            show(kFrontBack + group, meters.frontBack[group]);
        }
    }

private:
    float control(Port port, float defaultValue) const noexcept
    {
        return memory[port] != nullptr ? *memory[port] : defaultValue;
    }

    void show(std::uint32_t port, float value) const noexcept
    {
        if (memory[port] != nullptr) *memory[port] = value;
    }

    /// Computes the factor only when the gain changes.
    void setGain(float newGainDb) noexcept
    {
        if (newGainDb == gainDb) return;
        gainDb = newGainDb;
        stream.setMakeUpGain(zrk_tarn::gainFactor(static_cast<double>(gainDb)));
    }

    UpmixStream stream;
    std::array<float*, kPorts> memory{};
    float gainDb = 0.0f; ///< of the stream
};

/// Creates an instance. Returns null, with a message in the host's log, for a rate that the engine does not support, or
/// out of memory.
LV2_Handle instantiate(const LV2_Descriptor* /*descriptor*/, double rateHz, const char* /*bundle*/,
                       const LV2_Feature* const* features)
{
    LV2_Log_Logger log{};
    lv2_log_logger_init(&log, static_cast<LV2_URID_Map*>(lv2_features_data(features, LV2_URID__map)),
                        static_cast<LV2_Log_Log*>(lv2_features_data(features, LV2_LOG__log)));
    StreamConfiguration configuration;
    // 0 is a rate that the stream refuses.
    const bool whole = rateHz >= 0.0 && rateHz <= 1e9 && rateHz == std::floor(rateHz);
    configuration.sampleRateHz = whole ? static_cast<std::uint32_t>(rateHz) : 0;
    try {
        return new Upmix(configuration);
    } catch (const std::exception& problem) {
        lv2_log_error(&log, "Tarn upmix: not at %g Hz: %s\n", rateHz, problem.what());
        return nullptr;
    }
}

void connectPort(LV2_Handle instance, std::uint32_t port, void* memory)
{
    static_cast<Upmix*>(instance)->connect(port, memory);
}

void activate(LV2_Handle instance)
{
    static_cast<Upmix*>(instance)->activate();
}

void run(LV2_Handle instance, std::uint32_t frames)
{
    static_cast<Upmix*>(instance)->run(frames);
}

void cleanup(LV2_Handle instance)
{
    delete static_cast<Upmix*>(instance);
}

constexpr LV2_Descriptor kDescriptor = {"urn:tarn:upmix", instantiate, connectPort, activate, run,
                                        nullptr,          cleanup,     nullptr};

} // namespace

/// The only exported function.
LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index)
{
    return index == 0 ? &kDescriptor : nullptr;
}
