// The options of tarn upmix for centre, surround channels and level.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/layout.h"
#include "stream/presets.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace tarn
{

/// A preset, and what replaces its settings.
struct RoomOptions
{
    std::optional<std::string> preset; ///< none: the first one
    std::optional<double> centreDb;
    std::optional<double> width;
    std::optional<std::string> surrounds; ///< a level in dB, or off
    std::optional<std::string> bass;      ///< steered or fronts
    std::optional<std::string> lfe;       ///< as surrounds
    std::optional<double> gainDb;         ///< make-up gain
    bool limiter = false;                 ///< with a preset without it
    bool noLimiter = false;
};

/// Adds the options to a command.
void addRoomOptions(CLI::App& command, RoomOptions& options);

/// Refuses options that have no effect on the layout, or in bypass. Throws Failure (EX_USAGE).
void checkRoomOptions(const RoomOptions& options, const Layout& layout, bool bypass);

/// The settings that the options stand for. In a layout for two loudspeakers, which the upmix does not make softer, and
/// in a remapped layout, whose matrix sets the levels, the gain is 0 dB by default. A remapped layout has no limiter.
zrk_tarn::RoomSettings roomSettingsOf(const RoomOptions& options, const Layout& layout);

/// What to say about such an output.
inline constexpr const char* kUnchangedStereo =
    "the stereo is not changed, because the gain of the centre is 0 dB; add for example --centre 6";

/// Whether the output is the stereo as it is: in a layout for two loudspeakers without gain.
bool keepsStereo(const Layout& layout, const zrk_tarn::RoomSettings& settings);

} // namespace tarn
