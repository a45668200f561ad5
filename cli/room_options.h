// The options of tarn upmix for the centre and the surround channels.
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
    std::string preset = zrk_tarn::kPresets[0].name;
    std::optional<double> centreDb;
    std::optional<double> width;
    std::optional<std::string> surrounds; ///< a level in dB, or off
};

/// Adds the options to a command.
void addRoomOptions(CLI::App& command, RoomOptions& options);

/// Refuses options that have no effect on the layout, or in bypass. Throws Failure (EX_USAGE).
void checkRoomOptions(const RoomOptions& options, const Layout& layout, bool bypass);

/// The settings that the options stand for.
zrk_tarn::RoomSettings roomSettingsOf(const RoomOptions& options);

} // namespace tarn
