// Adds options that several commands have.
// SPDX-License-Identifier: MIT
#include "cli/shared_options.h"

#include "cli/option_checks.h"
#include "stream/presets.h"

#include <vector>

namespace tarn
{

namespace
{

std::vector<std::string> presetNames()
{
    std::vector<std::string> names;
    for (const zrk_tarn::Preset& preset : zrk_tarn::kPresets) names.emplace_back(preset.name);
    return names;
}

} // namespace

void addLayoutOption(CLI::App& command, std::string& layout, const std::string& what)
{
    command.add_option("--layout", layout, what + ": 2.0, 3.0 (default), 5.1 or 7.1")
        ->type_name("NAME")
        ->check(oneOf({"2.0", "3.0", "5.1", "7.1"}, "--layout 5.1"));
}

void addPresetOption(CLI::App& command, std::optional<std::string>& preset, const std::string& description)
{
    command.add_option("--preset", preset, description)
        ->type_name("NAME")
        ->check(oneOf(presetNames(), "--preset voice"));
}

void addRawOption(CLI::App& command, std::optional<std::string>& raw)
{
    command
        .add_option("--raw", raw,
                    "Standard input is raw stereo PCM of this rate and\n"
                    "width, for example 48000:16")
        ->type_name("RATE:BITS");
}

void addThemeOption(CLI::App& command, std::string& theme)
{
    command.add_option("--theme", theme, "Background: dark (default), or light for paper")
        ->type_name("NAME")
        ->check(oneOf({"dark", "light"}, "--theme light"));
}

} // namespace tarn
