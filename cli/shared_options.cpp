// Adds options that several commands have.
// SPDX-License-Identifier: MIT
#include "cli/shared_options.h"

#include "cli/option_checks.h"
#include "cli/parse_time.h"
#include "stream/presets.h"

namespace tarn
{

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
        ->check(oneOfNames(zrk_tarn::kPresets, "--preset voice"));
}

void addRawOption(CLI::App& command, std::optional<std::string>& raw)
{
    command
        .add_option("--raw", raw,
                    "Standard input is raw stereo PCM of this rate and\n"
                    "width, for example 48000:16")
        ->type_name("RATE:BITS");
}

std::string unreadable(const std::string& value, const std::string& kind, const std::string& example)
{
    return "'" + value + "' cannot be read as " + kind + "; write for example " + example;
}

CLI::Validator timeOption(bool isLength, const std::string& example)
{
    const auto check = [=](const std::string& value) -> std::string {
        const auto seconds = parseTime(value);
        if (!seconds) return unreadable(value, "a time", example);
        if (isLength && *seconds == 0.0) return value + " is out of range; use more than 0, for example " + example;
        return "";
    };
    return {check, ""};
}

void addStartOption(CLI::App& command, std::optional<std::string>& start)
{
    command.add_option("--start", start, "Begin at this time of INPUT: 90, or 1:30")
        ->type_name("TIME")
        ->check(timeOption(false, "--start 1:30"));
}

void addThemeOption(CLI::App& command, std::string& theme)
{
    command.add_option("--theme", theme, "Background: dark (default), or light for paper")
        ->type_name("NAME")
        ->check(oneOf({"dark", "light"}, "--theme light"));
}

} // namespace tarn
