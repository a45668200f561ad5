// The values of the controls of plug-ins, and the settings that they stand for.
// SPDX-License-Identifier: MIT
#pragma once

#include "plugins/common/ports.h"
#include "stream/presets.h"

namespace tarn_plugins
{

/// The settings of a preset in a layout. For two loudspeakers, which the upmix does not make softer, the gain is 0 dB,
/// as in the tarn command.
constexpr zrk_tarn::RoomSettings settingsOf(const zrk_tarn::Preset& preset, const Layout& layout) noexcept
{
    zrk_tarn::RoomSettings settings = preset.settings;
    if (layout.isDialogue()) settings.gainDb = 0.0;
    return settings;
}

/// The preset whose values are the defaults of the controls. For two loudspeakers it is voice, because film changes
/// nothing.
constexpr const zrk_tarn::Preset& defaultPresetOf(const Layout& layout) noexcept
{
    return layout.isDialogue() ? *zrk_tarn::presetNamed("voice") : zrk_tarn::kPresets[0];
}

/// The value of a control for settings of the room; 1 for kEnabled and kMode, 0 for kPreset.
constexpr float valueOf(Port control, const zrk_tarn::RoomSettings& settings) noexcept
{
    switch (control) {
    case kPreset:
        return 0.0f;
    case kGain:
        return static_cast<float>(settings.gainDb);
    case kLimiter:
        return settings.limiter ? 1.0f : 0.0f;
    case kCentre:
        return static_cast<float>(settings.centreDb);
    case kWidth:
        return static_cast<float>(settings.width);
    case kBass:
        return settings.bass == zrk_tarn::BassMode::Fronts ? 1.0f : 0.0f;
    case kSurrounds:
        return static_cast<float>(settings.surroundDb.value_or(zrk_tarn::kMinGainDb));
    default:
        return 1.0f;
    }
}

/// The default value of a control.
constexpr float defaultOf(Port control, const Layout& layout) noexcept
{
    return valueOf(control, settingsOf(defaultPresetOf(layout), layout));
}

} // namespace tarn_plugins
