// The settings of user interfaces for centre, bass, surround channels and level, and their presets.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/float_environment.h"
#include "stream/gain.h"
#include "stream/upmix_stream.h"

#include <optional>
#include <string_view>

namespace zrk_tarn
{

/// Settings of centre, bass, surround channels and level, in the units of user interfaces.
struct RoomSettings
{
    double gainDb = 0.0;   ///< make-up gain, kMinGainDb to kMaxGainDb (stream/gain.h)
    bool limiter = false;  ///< instead of clipping
    double centreDb = 0.0; ///< kMinGainDb to kMaxChannelGainDb
    double width = 1.0;    ///< 0 to 1
    BassMode bass = BassMode::Steered;
    std::optional<double> surroundDb = {}; ///< as centreDb; none or kMinGainDb: surround channels are silent
    std::optional<double> lfeDb = {};      ///< as surroundDb, for the LFE channel

    bool operator==(const RoomSettings&) const = default;
};

/// The arithmetic of applySettings. Not inlined, so that it stays in the scope of the environment.
[[gnu::noinline]] inline void applyInEnvironment(const RoomSettings& settings, UpmixStream& stream) noexcept
{
    stream.setMakeUpGain(gainFactor(settings.gainDb));
    stream.setLimiting(settings.limiter);
    stream.setCentreGain(gainFactor(settings.centreDb));
    stream.setCentreWidth(static_cast<float>(settings.width));
    stream.setBass(settings.bass);
    const auto factorOf = [](std::optional<double> gainDb) {
        return gainDb.value_or(kMinGainDb) == kMinGainDb ? 0.0f : gainFactor(*gainDb);
    };
    stream.setSurroundGain(factorOf(settings.surroundDb));
    stream.setLfeGain(factorOf(settings.lfeDb));
}

/// Applies settings to a stream. Its limiter needs StreamConfiguration::limiter too. Results do not depend on the
/// floating-point mode of the calling thread.
inline void applySettings(const RoomSettings& settings, UpmixStream& stream) noexcept
{
    const DefaultFloatEnvironment environment;
    applyInEnvironment(settings, stream);
}

struct Preset
{
    const char* name;
    RoomSettings settings;
};

/// The first one is the default of user interfaces. The library's own default is plain, the outputs of the engine. The
/// gain of +3 dB makes the upmix in 3.0 about as loud as the stereo.
inline constexpr Preset kPresets[] = {
    {"film",
     {.gainDb = 3.0, .limiter = true, .centreDb = 0.0, .width = 1.0, .bass = BassMode::Fronts, .surroundDb = -3.0}},
    {"music",
     {.gainDb = 3.0, .limiter = true, .centreDb = 0.0, .width = 0.6, .bass = BassMode::Fronts, .surroundDb = -3.0}},
    {"voice",
     {.gainDb = 3.0, .limiter = true, .centreDb = 6.0, .width = 1.0, .bass = BassMode::Fronts, .surroundDb = -9.0}},
    {"plain",
     {.gainDb = 0.0,
      .limiter = false,
      .centreDb = 0.0,
      .width = 1.0,
      .bass = BassMode::Steered,
      .surroundDb = std::nullopt}},
};

/// The preset of a name; null for another text.
constexpr const Preset* presetNamed(std::string_view name) noexcept
{
    for (const Preset& preset : kPresets)
        if (name == preset.name) return &preset;
    return nullptr;
}

} // namespace zrk_tarn
