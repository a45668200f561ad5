/// @file
/// The LV2 plug-in: a stream for each instance, its ports, and nothing else. Built into the bundle tarn.lv2, whose
/// tarn.ttl describes the ports in the order of Port.

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

/// By index, as in tarn.ttl.
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

/// An instance: a stream, and where the host keeps the values of the ports.
class Upmix
{
public:
    /// Throws as UpmixStream does.
    explicit Upmix(const StreamConfiguration& configuration) : stream_(configuration) {}

    /// Where a port's value or samples are from now on; null where the host has none.
    void connect(std::uint32_t port, void* memory) noexcept
    {
        if (port < kPorts) memory_[port] = static_cast<float*>(memory);
    }

    /// Makes the stream silent, as LV2 expects of an activation.
    void activate() noexcept { stream_.reset(); }

    /// Controls first: the outputs may be in their inputs' memory. What is not a number is as the default.
    void run(std::uint32_t frames) noexcept
    {
        stream_.setBypass(control(kEnabled, 1.0f) <= 0.0f);
        stream_.setMode(control(kMode, 1.0f) >= 1.5f ? SteeringMode::Calm : SteeringMode::Fast);
        stream_.setMakeUpGain(gainOf(control(kGain, 0.0f)));

        const float* const input[] = {memory_[kInLeft], memory_[kInRight]};
        float* const output[] = {memory_[kOutLeft], memory_[kOutRight], memory_[kOutCentre]};
        stream_.processPlanar(input, output, frames);

        show(kLatency, static_cast<float>(UpmixStream::latencyFrames()));
        const StreamMeters meters = stream_.meters();
        for (std::uint32_t group = 0; group < std::size(meters.leftRight); ++group) {
            show(kLeftRight + group, meters.leftRight[group]);
            show(kFrontBack + group, meters.frontBack[group]);
        }
    }

private:
    float control(Port port, float otherwise) const noexcept
    {
        return memory_[port] != nullptr ? *memory_[port] : otherwise;
    }

    void show(std::uint32_t port, float value) const noexcept
    {
        if (memory_[port] != nullptr) *memory_[port] = value;
    }

    /// The factor of a gain in dB, computed when it changes only.
    float gainOf(float decibels) noexcept
    {
        if (decibels != decibels_) {
            decibels_ = decibels;
            factor_ = static_cast<float>(std::pow(10.0, static_cast<double>(decibels) / 20.0));
        }
        return factor_;
    }

    UpmixStream stream_;
    std::array<float*, kPorts> memory_{};
    float decibels_ = 0.0f;
    float factor_ = 1.0f;
};

/// Null, with a message, where there can be no stream: at a rate that the engine does not have, or without memory.
LV2_Handle instantiate(const LV2_Descriptor* /*descriptor*/, double rateHz, const char* /*bundle*/,
                       const LV2_Feature* const* features)
{
    LV2_Log_Logger log{};
    lv2_log_logger_init(&log, static_cast<LV2_URID_Map*>(lv2_features_data(features, LV2_URID__map)),
                        static_cast<LV2_Log_Log*>(lv2_features_data(features, LV2_LOG__log)));
    StreamConfiguration configuration;
    // What is not a whole number of the range is no rate of the engine's either.
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

/// The only name that the bundle's library exports.
LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index)
{
    return index == 0 ? &kDescriptor : nullptr;
}
