// Writes the options that change the samples of an output.
// SPDX-License-Identifier: MIT
#include "cli/option_text.h"

#include "cli/layout.h"
#include "cli/remap_file.h"
#include "stream/mode_names.h"

#include <charconv>

namespace tarn
{

namespace
{

std::string textOrOff(const std::optional<double>& value)
{
    return value ? exactText(*value) : "off";
}

std::string textOf(const RemapFile& remap)
{
    std::string text;
    for (const std::string& slot : remap.slots) text += (text.empty() ? "" : ",") + slot;
    for (const auto& row : remap.matrix.gain)
        for (const std::uint32_t gain : row) text += "," + std::to_string(gain);
    return text;
}

} // namespace

std::string exactText(double value)
{
    char text[32];
    const auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return {text, end};
}

std::string textOf(const zrk_tarn::RoomSettings& settings)
{
    return "gain=" + exactText(settings.gainDb) + " limiter=" + (settings.limiter ? "on" : "off") +
           " centre=" + exactText(settings.centreDb) + " width=" + exactText(settings.width) +
           " bass=" + nameOf(settings.bass) + " surrounds=" + textOrOff(settings.surroundDb) +
           " lfe=" + textOrOff(settings.lfeDb);
}

std::string optionText(const UpmixOptions& options)
{
    const Layout& layout = layoutNamed(options.layout);
    std::string text = "layout=" + options.layout + " bits=" + textOrAuto(options.bits) +
                       " rate=" + textOrAuto(options.rate) + " align=" + (options.noAlign ? "off" : "on");
    if (options.bypass) return text + " bypass";
    text += " mode=" + options.mode + " " + textOf(roomSettingsOf(options.room, layout));
    if (options.loudnessMatch) text += " loudness-match";
    if (options.album) text += " album=" + exactText(options.album->gainDb) + "," + exactText(options.album->peak);
    if (layout.remapped) text += " remap=" + textOf(readRemapFile(options.remapFile));
    return text;
}

} // namespace tarn
