// Facts that several files repeat: each file agrees with the constants in stream/.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"
#include "stream/gain.h"
#include "stream/mode_names.h"
#include "stream/presets.h"
#include "stream/upmix_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>

namespace tests
{

namespace
{

std::string contentsOf(const std::string& name)
{
    std::ifstream file(TARN_SOURCE_DIR "/" + name);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The supported rates as a list, for example "32, 44.1, ... and 192".
///
/// unitHz  1000 for kHz
/// last    the text before the last rate
std::string rateList(double unitHz, const std::string& separator, const std::string& last)
{
    std::string list;
    for (const std::uint32_t rateHz : zrk_tarn::kSampleRatesHz) {
        char number[16];
        std::snprintf(number, sizeof number, "%g", rateHz / unitHz);
        if (!list.empty()) list += rateHz == zrk_tarn::kSampleRatesHz.back() ? last : separator;
        list += number;
    }
    return list;
}

void expectContains(const std::string& file, const std::string& text)
{
    EXPECT_NE(contentsOf(file).find(text), std::string::npos) << file << " does not contain: " << text;
}

/// The value of a control in a configuration of PipeWire; NaN if there is none.
double controlIn(const std::string& file, const std::string& name)
{
    const std::string text = contentsOf(file);
    std::smatch match;
    const bool isFound = std::regex_search(text, match, std::regex("\n *\"" + name + "\" *= ([-0-9.]+)"));
    return isFound ? std::stod(match[1]) : std::nan("");
}

} // namespace

TEST(Facts, SampleRatesAreThoseThatTheEngineAccepts)
{
    ZRKTarn engine;
    for (std::uint32_t rateHz = 0; rateHz <= 200000; ++rateHz) {
        const auto& rates = zrk_tarn::kSampleRatesHz;
        const bool supported = std::find(rates.begin(), rates.end(), rateHz) != rates.end();
        const std::uint32_t result = engine.Initialize({.spare = 0,
                                                        .outputChannels = 3,
                                                        .bitsPerSample = 16,
                                                        .sampleRate = rateHz,
                                                        .mode = 2,
                                                        .option = 0,
                                                        .mixFraction = 1.0f});
        ASSERT_EQ(result, supported ? 0u : 3u) << rateHz << " Hz";
    }
}

TEST(Facts, TextsListTheSupportedSampleRates)
{
    zrk_tarn::StreamConfiguration configuration;
    configuration.sampleRateHz = 0;
    EXPECT_EQ(zrk_tarn::UpmixStream::problemOf(configuration),
              "the sample rate has to be " + rateList(1, ", ", " or ") + " Hz");
    expectContains("c_api/tarn.h", "/**< Hz: " + rateList(1, ", ", " or ") + " */");
    expectContains("completions/tarn.bash", "'" + rateList(1, " ", " ") + "'");
    expectContains("completions/_tarn", "(" + rateList(1, " ", " ") + ")");
    for (const char* const page : {"lv2", "ladspa"})
        expectContains(std::string("docs/hosts/") + page + ".md", rateList(1000, ", ", " and ") + " kHz");
    for (const char* const page : {"alsa", "gstreamer", "jack", "pipewire"})
        expectContains(std::string("docs/hosts/") + page + ".md", rateList(1000, ", ", " or ") + " kHz");
}

TEST(Facts, TextsStateTheRangeOfTheGain)
{
    char range[32];
    std::snprintf(range, sizeof range, "%g to %g", zrk_tarn::kMinGainDb, zrk_tarn::kMaxGainDb);
    for (const char* const page : {"alsa", "gstreamer", "jack", "ladspa", "lv2"})
        expectContains(std::string("docs/hosts/") + page + ".md", range);
    for (const char* const file : {"plugins/pipewire/tarn-upmix.conf", "plugins/pipewire/tarn-dialogue.conf",
                                   "docs/man/tarn-upmix.1.scd", "cli/help_texts.h"})
        expectContains(file, range);
    EXPECT_LE(zrk_tarn::gainFactor(zrk_tarn::kMaxGainDb), zrk_tarn::kMaxMakeUpGain) << "streams would reduce it";
}

TEST(Facts, SteeringModesHaveNames)
{
    using zrk_tarn::SteeringMode;
    for (const SteeringMode mode : {SteeringMode::Fast, SteeringMode::Calm})
        EXPECT_EQ(zrk_tarn::modeNamed(zrk_tarn::kSteeringModeNames, zrk_tarn::nameOf(mode)), mode);
    EXPECT_EQ(zrk_tarn::modeNamed(zrk_tarn::kSteeringModeNames, "slow"), std::nullopt);
    expectContains("completions/tarn.bash", "--mode) words='fast calm'");
}

TEST(Facts, TextsListThePresets)
{
    std::string names;
    for (const auto& [name, settings] : zrk_tarn::kPresets) {
        names += (names.empty() ? "" : " ") + std::string(name);
        char row[100];
        std::snprintf(row, sizeof row, "|  *%s*\n:  %g\n:  %g\n:  ", name, settings.centreDb, settings.width);
        std::string surrounds = "off";
        if (settings.surroundDb) {
            char number[20];
            std::snprintf(number, sizeof number, "%g", *settings.surroundDb);
            surrounds = number;
        }
        char level[40];
        std::snprintf(level, sizeof level, "\n:  %s\n:  %g\n:  %s\n",
                      settings.bass == zrk_tarn::BassMode::Fronts ? "fronts" : "steered", settings.gainDb,
                      settings.limiter ? "on" : "off");
        expectContains("docs/man/tarn-upmix.1.scd", row + surrounds + level);
    }
    expectContains("completions/tarn.bash", "--preset) words='" + names + "'");
    expectContains("completions/_tarn", "preset:(" + names + ")");
}

TEST(Facts, SinksOfPipeWireHaveThePresets)
{
    const char* const kSink = "plugins/pipewire/tarn-upmix.conf";
    for (const auto& [name, settings] : zrk_tarn::kPresets) {
        char row[100];
        std::snprintf(row, sizeof row, "#   %-6s %-5g %-8d %-7g %-6g %-5d %g\n", name, settings.gainDb,
                      settings.limiter ? 1 : 0, settings.centreDb, settings.width,
                      settings.bass == zrk_tarn::BassMode::Fronts ? 1 : 0,
                      settings.surroundDb.value_or(zrk_tarn::kMinGainDb));
        expectContains(kSink, row);
    }
    const zrk_tarn::RoomSettings& film = zrk_tarn::kPresets[0].settings;
    EXPECT_EQ(controlIn(kSink, "gain"), film.gainDb);
    EXPECT_EQ(controlIn(kSink, "limiter"), film.limiter ? 1.0 : 0.0);
    EXPECT_EQ(controlIn(kSink, "centre"), film.centreDb);
    EXPECT_EQ(controlIn(kSink, "width"), film.width);
    EXPECT_EQ(controlIn(kSink, "bass"), film.bass == zrk_tarn::BassMode::Fronts ? 1.0 : 0.0);
    EXPECT_EQ(controlIn(kSink, "surrounds"), film.surroundDb);

    const char* const kDialogue = "plugins/pipewire/tarn-dialogue.conf";
    const zrk_tarn::RoomSettings& voice = zrk_tarn::presetNamed("voice")->settings;
    EXPECT_EQ(controlIn(kDialogue, "centre"), voice.centreDb);
    EXPECT_EQ(controlIn(kDialogue, "limiter"), voice.limiter ? 1.0 : 0.0);
    EXPECT_EQ(controlIn(kDialogue, "gain"), 0.0) << "two loudspeakers need no make-up gain";
}

TEST(Facts, TextsStateTheRangeOfTheChannelGains)
{
    char range[32];
    std::snprintf(range, sizeof range, "%g to %g", zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb);
    for (const char* const file : {"docs/man/tarn-upmix.1.scd", "cli/help_texts.h", "plugins/pipewire/tarn-upmix.conf",
                                   "plugins/pipewire/tarn-dialogue.conf", "docs/hosts/lv2.md", "docs/hosts/ladspa.md"})
        expectContains(file, range);
    EXPECT_LE(zrk_tarn::gainFactor(zrk_tarn::kMaxChannelGainDb), zrk_tarn::kMaxChannelGain)
        << "streams would reduce it";
    EXPECT_EQ(zrk_tarn::gainFactor(-3.0), zrk_tarn::kTypicalSurroundGain);
}

/// Expects that the row of a name in a table of Markdown ends with a value.
void expectDefault(const std::string& file, const std::string& name, const std::string& value)
{
    const std::string text = contentsOf(file);
    const std::size_t row = text.find("\n| `" + name + "` |");
    ASSERT_NE(row, std::string::npos) << file << " has no row " << name;
    const std::string line = text.substr(row + 1, text.find('\n', row + 1) - row - 1);
    const std::string last = "| " + value + " |";
    EXPECT_TRUE(line.ends_with(last)) << file << ": " << line << " does not end with " << last;
}

/// A number as users write it.
std::string shortest(double number)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", number);
    return text;
}

TEST(Facts, PagesOfPluginsStateLatencyPresetsAndRanges)
{
    std::string names;
    for (std::size_t i = 0; i < std::size(zrk_tarn::kPresets); ++i) {
        const bool isLast = i + 1 == std::size(zrk_tarn::kPresets);
        names += (i == 0 ? "`" : isLast ? " or `" : ", `") + std::string(zrk_tarn::kPresets[i].name) + "`";
    }
    for (const char* const page : {"alsa", "gstreamer"}) {
        const std::string file = "docs/hosts/" + std::string(page) + ".md";
        expectContains(file, names);
        expectContains(file, "latency of " + std::to_string(zrk_tarn::UpmixStream::latencyFrames({.limiter = true})));
        expectContains(file, shortest(zrk_tarn::kMinGainDb) + " to " + shortest(zrk_tarn::kMaxChannelGainDb));
        for (const auto& [mode, name] : zrk_tarn::kBassModeNames) expectContains(file, "`" + std::string(name) + "`");
    }
}

TEST(Facts, PagesOfPluginsStateTheDefaults)
{
    struct Names
    {
        const char* page;
        const char* centre;
        const char* surrounds;
        const char* gain;
        const char* gainIn20; ///< what follows the default of the gain
    };
    const zrk_tarn::RoomSettings& settings = zrk_tarn::kPresets[0].settings;
    for (const Names& names : {Names{"alsa", "centre", "surrounds", "gain", "; in 2.0: 0"},
                               Names{"gstreamer", "centre-gain", "surround-gain", "make-up-gain", ""}}) {
        const std::string file = "docs/hosts/" + std::string(names.page) + ".md";
        expectDefault(file, "preset", "`" + std::string(zrk_tarn::kPresets[0].name) + "`");
        expectDefault(file, names.centre, shortest(settings.centreDb));
        expectDefault(file, "width", shortest(settings.width));
        expectDefault(file, names.surrounds, shortest(settings.surroundDb.value_or(zrk_tarn::kMinGainDb)));
        expectDefault(file, "bass", "`" + std::string(nameOf(settings.bass)) + "`");
        expectDefault(file, names.gain, shortest(settings.gainDb) + names.gainIn20);
        expectDefault(file, "limiter", settings.limiter ? "`true`" : "`false`");
    }
}

TEST(Facts, BassModesHaveNames)
{
    using zrk_tarn::BassMode;
    for (const BassMode mode : {BassMode::Steered, BassMode::Fronts})
        EXPECT_EQ(zrk_tarn::modeNamed(zrk_tarn::kBassModeNames, zrk_tarn::nameOf(mode)), mode);
    EXPECT_EQ(zrk_tarn::modeNamed(zrk_tarn::kBassModeNames, "centre"), std::nullopt);
    expectContains("completions/tarn.bash", "--bass) words='steered fronts'");
}

} // namespace tests
