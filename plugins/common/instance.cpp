// An instance of a plug-in for LV2 or LADSPA.
// SPDX-License-Identifier: MIT
#include "plugins/common/instance.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace tarn_plugins
{

namespace
{

constexpr float kSilentLevel = 1e-6f; ///< softer groups are shown as -120 dB

float decibels(float level) noexcept
{
    return 20.0f * std::log10(std::max(level, kSilentLevel));
}

zrk_tarn::StreamConfiguration configurationOf(const Layout& layout, std::uint32_t rateHz)
{
    zrk_tarn::StreamConfiguration configuration{
        .sampleRateHz = rateHz, .outputSlots = static_cast<std::uint32_t>(layout.outputs), .limiter = true};
    for (std::size_t i = 0; i < layout.outputs; ++i) configuration.outputs[i] = layout.channels[i].slot;
    return configuration;
}

} // namespace

Instance::Instance(const Plugin& instancePlugin, std::uint32_t rateHz)
    : plugin(instancePlugin), stream(configurationOf(instancePlugin.layout, rateHz))
{}

void Instance::connect(unsigned long port, float* location) noexcept
{
    if (port < plugin.ports.count) memory[plugin.ports.ports[port]] = location;
}

void Instance::run(std::size_t frames) noexcept
{
    stream.setBypass(control(kEnabled) <= 0.0f);
    stream.setMode(control(kMode) >= 1.5f ? zrk_tarn::SteeringMode::Calm : zrk_tarn::SteeringMode::Fast);
    // Computes the factors of the gains after a change only.
    if (const zrk_tarn::RoomSettings wanted = settings(); wanted != applied) {
        zrk_tarn::applySettings(wanted, stream);
        applied = wanted;
    }
    stream.processPlanar(memory + kLeftIn, memory + kOutput, frames);
    show(kLatency, static_cast<float>(kLatencyFrames));
}

void Instance::showMeters() const noexcept
{
    const zrk_tarn::StreamMeters meters = stream.meters();
    show(kReduction, 20.0f * std::log10(1.0f / meters.limiterGain));
    for (std::size_t group = 0; group < std::size(meters.leftRight); ++group) {
        show(kLeftRight + group, meters.leftRight[group]);
        show(kFrontBack + group, meters.frontBack[group]);
        show(kGroupLevel + group, decibels(meters.groupLevel[group]));
        show(kGroupPlace + group, meters.groupPlace[group]);
        show(kGroupCentre + group, meters.groupCentre[group]);
        show(kGroupUpperHz + group, meters.groupUpperHz[group]);
        show(kGroupSurround + group, decibels(meters.groupSurround[group]));
    }
}

float Instance::control(Port port) const noexcept
{
    const bool isSet = memory[port] != nullptr && !std::isnan(*memory[port]);
    return isSet ? *memory[port] : defaultOf(port, plugin.layout);
}

/// The settings of the preset, or those of the other controls.
zrk_tarn::RoomSettings Instance::settings() const noexcept
{
    const float preset = std::clamp(std::round(control(kPreset)), 0.0f, float{std::size(zrk_tarn::kPresets)});
    if (preset > 0.0f) return settingsOf(zrk_tarn::kPresets[static_cast<std::size_t>(preset) - 1], plugin.layout);

    using zrk_tarn::BassMode;
    zrk_tarn::RoomSettings settings{.gainDb = static_cast<double>(control(kGain)),
                                    .limiter = control(kLimiter) > 0.0f,
                                    .centreDb = static_cast<double>(control(kCentre)),
                                    .width = static_cast<double>(control(kWidth)),
                                    .bass = control(kBass) > 0.0f ? BassMode::Fronts : BassMode::Steered};
    if (const float level = control(kSurrounds); level > plugin.silentSurroundDb)
        settings.surroundDb = static_cast<double>(level);
    return settings;
}

void Instance::show(std::size_t port, float value) const noexcept
{
    if (memory[port] != nullptr) *memory[port] = value;
}

} // namespace tarn_plugins
