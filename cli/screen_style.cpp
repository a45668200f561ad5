// Reads from the environment what the terminal can show.
// SPDX-License-Identifier: MIT
#include "cli/screen_style.h"

#include "cli/environment.h"

#include <cctype>
#include <string>
#include <string_view>

namespace tarn
{

namespace
{

bool isUtf8Locale()
{
    std::string_view locale;
    for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (locale.empty()) locale = environmentVariable(name);
    std::string upper(locale);
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return upper.find("UTF-8") != std::string::npos || upper.find("UTF8") != std::string::npos;
}

ColourMode coloursOfEnvironment()
{
    if (!environmentVariable("NO_COLOR").empty()) return ColourMode::Plain;
    if (environmentVariable("COLORTERM") == "truecolor" || environmentVariable("COLORTERM") == "24bit")
        return ColourMode::Full;
    const std::string_view type = environmentVariable("TERM");
    for (const std::string_view known : {"xterm", "screen", "tmux", "rxvt", "alacritty", "foot", "konsole"})
        if (type.starts_with(known)) return ColourMode::Cube;
    return type.find("256color") != std::string_view::npos ? ColourMode::Cube : ColourMode::Plain;
}

} // namespace

ScreenStyle styleOfEnvironment()
{
    // The fonts of the Linux console lack eighths of blocks.
    const bool hasBlocks = isUtf8Locale() && environmentVariable("TERM") != "linux";
    return {.colours = coloursOfEnvironment(), .isUtf8 = hasBlocks};
}

} // namespace tarn
