// The options of tarn upmix for centre, surround channels and level.
// SPDX-License-Identifier: MIT
#include "cli/room_options.h"

#include "cli/failure.h"
#include "cli/option_checks.h"
#include "cli/shared_options.h"
#include "stream/gain.h"
#include "stream/mode_names.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace tarn
{

namespace
{

using zrk_tarn::BassMode;
using zrk_tarn::OutputSlot;

constexpr const char* kOff = "off";

CLI::Validator channelGain(const std::string& example)
{
    return numberFrom(zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb, example);
}

/// Accepts a gain, or off.
CLI::Validator channelGainOrOff(const std::string& example)
{
    return wordOrNumberFrom(kOff, zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb, example);
}

/// The value of a checked option; none for off.
std::optional<double> gainOrOff(const std::string& value)
{
    double level = 0.0;
    if (value == kOff || !CLI::detail::lexical_cast(value, level)) return std::nullopt;
    return level;
}

/// The first given option that has no effect in bypass and on remapped layouts; empty if there is none. The preset
/// plain is what they do.
std::string firstGiven(const RoomOptions& options)
{
    const std::pair<bool, const char*> given[] = {{options.preset && options.preset != "plain", "--preset"},
                                                  {options.centreDb.has_value(), "--centre"},
                                                  {options.width.has_value(), "--width"},
                                                  {options.surrounds.has_value(), "--surrounds"},
                                                  {options.bass.has_value(), "--bass"},
                                                  {options.lfe.has_value(), "--lfe"},
                                                  {options.limiter, "--limiter"},
                                                  {options.noLimiter, "--no-limiter"}};
    for (const auto& [isGiven, name] : given)
        if (isGiven) return name;
    return "";
}

[[noreturn]] void refuse(const std::string& option, const std::string& reason)
{
    throw Failure(EX_USAGE, option + ": " + reason);
}

} // namespace

void addRoomOptions(CLI::App& command, RoomOptions& options)
{
    addPresetOption(command, options.preset,
                    "Sets the next five options and the limiter: film\n"
                    "(default), music, voice, or plain for the output of\n"
                    "the engine");
    command.add_option("--centre", options.centreDb, "Gain of the centre in dB, -60 to 12: louder or softer\nvoices")
        ->type_name("DB")
        ->check(channelGain("--centre 6"));
    command
        .add_option("--width", options.width,
                    "Part of the centre that its loudspeaker plays, 0 to 1;\n"
                    "the rest goes to FL and FR")
        ->type_name("W")
        ->check(numberFrom(0.0, 1.0, "--width 0.5"));
    command.add_option("--surrounds", options.surrounds, "Gain of the surround channels in dB, -60 to 12, or off")
        ->type_name("DB")
        ->check(channelGainOrOff("--surrounds -6"));
    command
        .add_option("--bass", options.bass,
                    "Bass below 120 Hz: in the fronts as in the stereo\n"
                    "(fronts, default), or steered")
        ->type_name("WHERE")
        ->check(oneOfNames(zrk_tarn::kBassModeNames, "--bass steered"));
    command.add_option("--gain", options.gainDb, "Gain of the output in dB, -60 to 18; default: 3")
        ->type_name("DB")
        ->check(numberFrom(zrk_tarn::kMinGainDb, zrk_tarn::kMaxGainDb, "--gain -6.5"));
    command
        .add_option("--lfe", options.lfe,
                    "Gain of the LFE channel in dB, -60 to 12, or off\n"
                    "(default); 0 suits receivers that add 10 dB")
        ->type_name("DB")
        ->check(channelGainOrOff("--lfe 0"));
    command.add_flag("--limiter", options.limiter, "With --preset plain: keep the true peak at about -1 dB");
    command.add_flag("--no-limiter", options.noLimiter, "Clip samples beyond full scale instead of limiting them");
}

void checkRoomOptions(const RoomOptions& options, const Layout& layout, bool bypass)
{
    const std::string name(layout.name);
    const std::string given = firstGiven(options);
    if (options.limiter && options.noLimiter) refuse("--limiter", "contradicts --no-limiter; leave one of them out");
    if (bypass && !given.empty()) refuse(given, "--bypass leaves the samples as they are; leave one of them out");
    if (layout.remapped && !given.empty())
        refuse(given, "has no effect on --layout " + name + ", whose matrix sets the levels; leave it out");
    if (options.width && !layout.hasSource(OutputSlot::Source::Engine))
        refuse("--width", "has no effect on --layout " + name + ", which has no centre loudspeaker; leave it out");
    if (options.bass && !layout.hasSource(OutputSlot::Source::Engine))
        refuse("--bass", "has no effect on --layout " + name + ", which keeps the bass of the stereo; leave it out");
    if (options.lfe && !layout.hasSource(OutputSlot::Source::Lfe))
        refuse("--lfe", "--layout " + name + " has no LFE channel; use --layout 5.1, or leave it out");
    if (options.surrounds && !layout.hasSource(OutputSlot::Source::Surround))
        refuse("--surrounds", "--layout " + name + " has no surround channels; use --layout 5.1, or leave it out");
}

zrk_tarn::RoomSettings roomSettingsOf(const RoomOptions& options, const Layout& layout)
{
    zrk_tarn::RoomSettings settings =
        options.preset ? zrk_tarn::presetNamed(*options.preset)->settings : zrk_tarn::kPresets[0].settings;
    if (layout.remapped || layout.hasSource(OutputSlot::Source::Dialogue)) settings.gainDb = 0.0;
    settings.limiter = (settings.limiter || options.limiter) && !options.noLimiter && !layout.remapped;
    if (options.bass) settings.bass = zrk_tarn::modeNamed(zrk_tarn::kBassModeNames, *options.bass).value();
    if (layout.remapped) settings.bass = BassMode::Steered;
    settings.gainDb = options.gainDb.value_or(settings.gainDb);
    settings.centreDb = options.centreDb.value_or(settings.centreDb);
    settings.width = options.width.value_or(settings.width);
    if (options.surrounds) settings.surroundDb = gainOrOff(*options.surrounds);
    if (options.lfe) settings.lfeDb = gainOrOff(*options.lfe);
    return settings;
}

bool keepsStereo(const Layout& layout, const zrk_tarn::RoomSettings& settings)
{
    return layout.hasSource(OutputSlot::Source::Dialogue) && settings.centreDb == 0.0 && settings.gainDb == 0.0;
}

} // namespace tarn
