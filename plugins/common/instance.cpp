// An instance of a plug-in for LV2 or LADSPA.
// SPDX-License-Identifier: MIT
#include "plugins/common/instance.h"

#include "lanes/float_environment.h"
#include "stream/block.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <limits>

namespace tarn_plugins
{

namespace
{

constexpr float kDefault = std::numeric_limits<float>::quiet_NaN(); ///< stands for the default of a control
constexpr float kSilentLevel = 1e-6f;                               ///< softer groups are shown as -120 dB

constexpr bool isMeter(Port port) noexcept
{
    return port >= kReduction && port < kUnused;
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
    : plugin(instancePlugin),
      stream(configurationOf(instancePlugin.layout, rateHz)),
      metersEnd(hasMeter(instancePlugin.layout, kGroupSurround) ? kUnused : kGroupSurround)
{
    for (std::size_t port = kReduction; port < kUnused; ++port) memory[port] = &meters[port];
    applied.fill(std::bit_cast<std::uint32_t>(kDefault));
    const zrk_tarn::DefaultFloatEnvironment environment;
    applyControls();
}

void Instance::connect(unsigned long port, float* location) noexcept
{
    if (port >= plugin.ports.count) return;
    const Port which = plugin.ports.ports[port];
    memory[which] = location == nullptr && isMeter(which) ? &meters[which] : location;
}

void Instance::activate() noexcept
{
    stream.reset();
    framesOfBlock = 0;
    hasNewMeters = true;
}

void Instance::run(std::size_t frames) noexcept
{
    Controls given;
    for (std::size_t i = 0; i < given.size(); ++i) {
        const float* const location = memory[kEnabled + i];
        given[i] = std::bit_cast<std::uint32_t>(location != nullptr ? *location : kDefault);
    }
    // Computes the factors of the gains after a change only.
    if (given != applied) {
        applied = given;
        const zrk_tarn::DefaultFloatEnvironment environment;
        applyControls();
    }
    stream.processPlanar(memory + kLeftIn, memory + kOutput, frames);
    framesOfBlock += frames;
    hasNewMeters = hasNewMeters || framesOfBlock >= zrk_tarn::kBlockFrames;
    framesOfBlock %= zrk_tarn::kBlockFrames;
    if (memory[kLatency] != nullptr) *memory[kLatency] = static_cast<float>(kLatencyFrames);
}

void Instance::showMeters() noexcept
{
    if (hasNewMeters) {
        const zrk_tarn::DefaultFloatEnvironment environment;
        readMeters();
    }
#pragma GCC unroll 4
    for (std::size_t port = kReduction; port < metersEnd; ++port) *memory[port] = meters[port];
}

/// Takes the meters of the stream after a block.
void Instance::readMeters() noexcept
{
    hasNewMeters = false;
    const zrk_tarn::StreamMeters read = stream.meters();
    meters[kReduction] = reduction.of(1.0f / read.limiterGain);
    const auto show = [this](Port port, const float(&values)[zrk_tarn::kBandGroups]) {
        std::copy(std::begin(values), std::end(values), meters + port);
    };
    show(kLeftRight, read.leftRight);
    show(kFrontBack, read.frontBack);
    show(kGroupPlace, read.groupPlace);
    show(kGroupCentre, read.groupCentre);
    show(kGroupUpperHz, read.groupUpperHz);
    for (std::size_t group = 0; group < zrk_tarn::kBandGroups; ++group) {
        meters[kGroupLevel + group] = groupLevel[group].of(read.groupLevel[group]);
        meters[kGroupSurround + group] = groupSurround[group].of(read.groupSurround[group]);
    }
}

float Instance::DecibelLevel::of(float newLevel) noexcept
{
    if (newLevel != level) {
        level = newLevel;
        decibels = 20.0f * std::log10(std::max(level, kSilentLevel));
    }
    return decibels;
}

void Instance::applyControls() noexcept
{
    stream.setBypass(control(kEnabled) <= 0.0f);
    stream.setMode(control(kMode) >= 1.5f ? zrk_tarn::SteeringMode::Calm : zrk_tarn::SteeringMode::Fast);
    zrk_tarn::applySettings(settings(), stream);
}

float Instance::control(Port port) const noexcept
{
    const auto value = std::bit_cast<float>(applied[port - std::size_t{kEnabled}]);
    return std::isnan(value) ? defaultOf(port, plugin.layout) : value;
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

} // namespace tarn_plugins
