// The fields of a PCM's configuration.
// SPDX-License-Identifier: MIT
#include "settings.h"

#include "stream/gain.h"
#include "stream/mode_names.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

namespace tarn_alsa
{

namespace
{

constexpr const char* kFields[] = {"slave", "layout", "preset", "centre",  "width", "surrounds",
                                   "bass",  "lfe",    "gain",   "limiter", "mode",  "enabled"};
constexpr const char* kFieldsOfAlsa[] = {"comment", "type", "hint"};
constexpr const char* kOff = "off";

const char* idOf(const snd_config_t& node)
{
    const char* id = "";
    snd_config_get_id(&node, &id);
    return id;
}

/// The text of a field; empty if its value is no text.
const char* textOf(const snd_config_t& node)
{
    const char* text = "";
    snd_config_get_string(&node, &text);
    return text;
}

/// Reports an invalid value.
///
/// accepted  the valid values: "a number from 0 to 1"
/// example   a valid value
[[noreturn]] void refuse(const snd_config_t& node, const std::string& accepted, const std::string& example)
{
    const std::string field = idOf(node);
    char* value = nullptr;
    const std::string given = snd_config_get_ascii(&node, &value) >= 0 ? "'" + std::string(value) + "'" : "{ ... }";
    std::free(value);
    throw std::invalid_argument(field + ": " + given + " is not " + accepted + "; write for example " + field + " " +
                                example);
}

/// "film, music, voice or plain"
template <typename Entry, std::size_t kCount>
std::string namesOf(const Entry (&entries)[kCount])
{
    std::string names;
    for (std::size_t i = 0; i < kCount; ++i)
        names += (i == 0 ? "" : i + 1 == kCount ? " or " : ", ") + std::string(entries[i].name);
    return names;
}

bool isNumberFrom(const snd_config_t& node, double minimum, double maximum, double& number)
{
    return snd_config_get_ireal(&node, &number) >= 0 && number >= minimum && number <= maximum;
}

std::string rangeText(double minimum, double maximum)
{
    char text[64];
    std::snprintf(text, sizeof text, "a number from %g to %g", minimum, maximum);
    return text;
}

double numberFrom(const snd_config_t& node, double minimum, double maximum, const std::string& example)
{
    double number = 0.0;
    if (!isNumberFrom(node, minimum, maximum, number)) refuse(node, rangeText(minimum, maximum), example);
    return number;
}

double channelGainOf(const snd_config_t& node)
{
    return numberFrom(node, zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb, "6");
}

double widthOf(const snd_config_t& node)
{
    return numberFrom(node, 0.0, 1.0, "0.5");
}

double gainOf(const snd_config_t& node)
{
    return numberFrom(node, zrk_tarn::kMinGainDb, zrk_tarn::kMaxGainDb, "-6.5");
}

std::optional<double> channelGainOrOffOf(const snd_config_t& node)
{
    double level = 0.0;
    if (std::strcmp(textOf(node), kOff) == 0) return std::nullopt;
    if (!isNumberFrom(node, zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb, level))
        refuse(node, "off or " + rangeText(zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb), "-6");
    return level;
}

bool switchOf(const snd_config_t& node)
{
    const int value = snd_config_get_bool(&node);
    if (value < 0) refuse(node, "true or false", "false");
    return value > 0;
}

zrk_tarn::SteeringMode modeOf(const snd_config_t& node)
{
    const auto mode = zrk_tarn::modeNamed(zrk_tarn::kSteeringModeNames, textOf(node));
    if (!mode) refuse(node, namesOf(zrk_tarn::kSteeringModeNames), "calm");
    return *mode;
}

zrk_tarn::BassMode bassOf(const snd_config_t& node)
{
    const auto mode = zrk_tarn::modeNamed(zrk_tarn::kBassModeNames, textOf(node));
    if (!mode) refuse(node, namesOf(zrk_tarn::kBassModeNames), "steered");
    return *mode;
}

zrk_tarn::RoomSettings presetOf(const snd_config_t& node)
{
    const zrk_tarn::Preset* const preset = zrk_tarn::presetNamed(textOf(node));
    if (preset == nullptr) refuse(node, namesOf(zrk_tarn::kPresets), "voice");
    return preset->settings;
}

const Layout* layoutOf(const snd_config_t& node)
{
    double number = 0.0;
    const bool isNumber = snd_config_get_ireal(&node, &number) >= 0;
    for (const Layout& layout : kLayouts)
        if (isNumber ? std::abs(number - layout.number) < 0.01 : std::strcmp(textOf(node), layout.name) == 0)
            return &layout;
    refuse(node, namesOf(kLayouts), "\"5.1\"");
}

/// The field of a name; null if the configuration does not have it.
snd_config_t* fieldOf(const snd_config_t* configuration, const char* name)
{
    snd_config_iterator_t at = nullptr;
    snd_config_iterator_t next = nullptr;
    snd_config_for_each(at, next, configuration)
    {
        snd_config_t* const node = snd_config_iterator_entry(at);
        if (std::strcmp(idOf(*node), name) == 0) return node;
    }
    return nullptr;
}

void refuseOtherFields(const snd_config_t* configuration)
{
    snd_config_iterator_t at = nullptr;
    snd_config_iterator_t next = nullptr;
    snd_config_for_each(at, next, configuration)
    {
        const std::string id = idOf(*snd_config_iterator_entry(at));
        const auto isIn = [&](const auto& names) {
            return std::find(std::begin(names), std::end(names), id) != std::end(names);
        };
        if (isIn(kFields) || isIn(kFieldsOfAlsa)) continue;
        std::string names;
        for (const char* const name : kFields)
            names += (name == kFields[0] ? "" : name == *std::rbegin(kFields) ? " and " : ", ") + std::string(name);
        throw std::invalid_argument("there is no field " + id + "; there are " + names);
    }
}

/// Refuses fields that have no effect on the layout.
void refuseWithoutEffect(const snd_config_t* configuration, const Layout& layout)
{
    const auto isGiven = [&](const char* field) { return fieldOf(configuration, field) != nullptr; };
    const std::string name = "layout " + std::string(layout.name);
    if (layout.isForTwoLoudspeakers() && isGiven("width"))
        throw std::invalid_argument("width: has no effect on " + name +
                                    ", which has no centre loudspeaker; leave it out");
    if (layout.isForTwoLoudspeakers() && isGiven("bass"))
        throw std::invalid_argument("bass: has no effect on " + name +
                                    ", which keeps the bass of the stereo; leave it out");
    if (!layout.hasSurrounds() && isGiven("lfe"))
        throw std::invalid_argument("lfe: " + name + " has no LFE channel; write layout \"5.1\", or leave it out");
    if (!layout.hasSurrounds() && isGiven("surrounds"))
        throw std::invalid_argument("surrounds: " + name +
                                    " has no surround channels; write layout \"5.1\", or leave it out");
}

} // namespace

Settings readSettings(const snd_config_t* configuration)
{
    refuseOtherFields(configuration);
    Settings settings;
    const auto read = [&](const char* field, auto& value, auto valueOf) {
        if (const snd_config_t* const node = fieldOf(configuration, field)) value = valueOf(*node);
    };
    read("layout", settings.layout, layoutOf);
    read("preset", settings.room, presetOf); // the fields below replace its values
    if (settings.layout->isForTwoLoudspeakers()) settings.room.gainDb = 0.0;
    read("centre", settings.room.centreDb, channelGainOf);
    read("width", settings.room.width, widthOf);
    read("surrounds", settings.room.surroundDb, channelGainOrOffOf);
    read("bass", settings.room.bass, bassOf);
    read("lfe", settings.room.lfeDb, channelGainOrOffOf);
    read("gain", settings.room.gainDb, gainOf);
    read("limiter", settings.room.limiter, switchOf);
    read("mode", settings.mode, modeOf);
    read("enabled", settings.enabled, switchOf);
    refuseWithoutEffect(configuration, *settings.layout);
    settings.slave = fieldOf(configuration, "slave");
    if (settings.slave == nullptr)
        throw std::invalid_argument("slave is missing: the PCM that plays the " + std::string(settings.layout->name) +
                                    "; write for example slave.pcm \"hw:0\"");
    return settings;
}

} // namespace tarn_alsa
