// The presets of user interfaces: named settings of centre and surround channels.
// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string_view>

namespace zrk_tarn
{

/// Settings of the centre and the surround channels, in the units of user interfaces.
struct RoomSettings
{
    double centreDb = 0.0;                 ///< kMinGainDb to kMaxChannelGainDb (stream/gain.h)
    double width = 1.0;                    ///< 0 to 1
    std::optional<double> surroundDb = {}; ///< as centreDb; none: surround channels are silent
};

struct Preset
{
    const char* name;
    RoomSettings settings;
};

/// The first one is the default of user interfaces. The library's own default is plain.
inline constexpr Preset kPresets[] = {
    {"film", {.centreDb = 0.0, .width = 1.0, .surroundDb = -3.0}},
    {"music", {.centreDb = 0.0, .width = 0.6, .surroundDb = -3.0}},
    {"voice", {.centreDb = 6.0, .width = 1.0, .surroundDb = -9.0}},
    {"plain", {.centreDb = 0.0, .width = 1.0, .surroundDb = std::nullopt}},
};

/// The preset of a name; null for another text.
constexpr const Preset* presetNamed(std::string_view name) noexcept
{
    for (const Preset& preset : kPresets)
        if (name == preset.name) return &preset;
    return nullptr;
}

} // namespace zrk_tarn
