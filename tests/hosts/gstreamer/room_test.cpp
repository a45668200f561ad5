// The properties of centre, bass, surround channels and level of the GStreamer element, and its presets.
// SPDX-License-Identifier: MIT
#include "tests/hosts/gstreamer/element.h"

#include <map>

namespace tests
{

namespace
{

using zrk_tarn::BassMode;
using zrk_tarn::RoomSettings;

constexpr int kRateHz = 48000;
constexpr zrk_tarn::RoomSettings kFilm = zrk_tarn::kPresets[0].settings;

/// The configuration of a stream to a number of channels in GStreamer's order.
zrk_tarn::StreamConfiguration configurationFor(std::uint32_t channels)
{
    using enum zrk_tarn::OutputSlot::Source;
    zrk_tarn::StreamConfiguration configuration{
        .format = zrk_tarn::SampleFormat::S24, .outputSlots = channels, .limiter = true};
    configuration.outputs = {{{Engine, 0}, {Engine, 1}, {Engine, 2}, {Lfe, 0}, {Surround, 0}, {Surround, 1}}};
    if (channels == 2) configuration.outputs = {{{Dialogue, 0}, {Dialogue, 1}}};
    if (channels == 8)
        configuration.outputs = {{{Engine, 0},
                                  {Engine, 1},
                                  {Engine, 2},
                                  {Lfe, 0},
                                  {Surround, 2},
                                  {Surround, 3},
                                  {Surround, 0},
                                  {Surround, 1}}};
    return configuration;
}

/// A stream beside the element, with the same input and settings.
class Peer
{
public:
    Peer(std::uint32_t outputChannels, const RoomSettings& settings)
        : channels(outputChannels), stream(configurationFor(outputChannels))
    {
        apply(settings);
    }

    void apply(const RoomSettings& settings) { zrk_tarn::applySettings(settings, stream); }

    void push(std::span<const std::uint8_t> stereo)
    {
        const std::size_t frames = stereo.size() / 6;
        const std::size_t begin = output.size();
        output.resize(begin + frames * channels * 3);
        stream.process(stereo.data(), &output[begin], frames);
    }

    /// The output with its tail, aligned with the input.
    Bytes drained()
    {
        Bytes all = output;
        all.resize(output.size() + kLatency * channels * 3);
        EXPECT_EQ(stream.drain(&all[output.size()], kLatency), kLatency);
        all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(kLatency * channels * 3));
        return all;
    }

private:
    std::uint32_t channels;
    zrk_tarn::UpmixStream stream;
    Bytes output;
};

/// Properties with their values as text.
using Properties = std::vector<std::pair<const char*, const char*>>;

/// The element's output for a number of channels.
Bytes outputWith(const Properties& properties, std::uint32_t channels, const Bytes& stereo)
{
    const std::string outputCaps = "audio/x-raw, channels=" + std::to_string(channels);
    Element element("audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=1", nullptr, nullptr);
    for (const auto& [name, value] : properties) element.set(name, value);
    gst_harness_set_sink_caps_str(element.harness(), outputCaps.c_str());
    element.setCaps(capsOf(kS24, kRateHz));
    element.pushAll(stereo, kS24, kRateHz);
    element.end();
    return element.output();
}

/// The output that a stream has with settings.
Bytes expectedWith(const RoomSettings& settings, std::uint32_t channels, const Bytes& stereo)
{
    Peer peer(channels, settings);
    peer.push(stereo);
    return peer.drained();
}

/// The settings of the default with a change.
template <typename Change>
RoomSettings filmBut(Change change)
{
    RoomSettings settings = kFilm;
    change(settings);
    return settings;
}

/// Stereo that the limiter turns down at a gain of 3 dB.
Bytes loudStereo(std::size_t frames)
{
    Bytes stereo = stereoOf(frames, kS24);
    for (std::size_t i = 0; i < stereo.size(); i += 3) {
        const std::int32_t sample = (stereo[i] << 8 | stereo[i + 1] << 16 | stereo[i + 2] << 24) / 256;
        const std::int32_t loud = std::clamp(sample * 2, -0x800000, 0x7fffff);
        for (std::size_t byte = 0; byte < 3; ++byte) stereo[i + byte] = static_cast<std::uint8_t>(loud >> 8 * byte);
    }
    return stereo;
}

TEST(Room, DefaultIsThePresetFilm)
{
    const Bytes stereo = loudStereo(9000);
    for (const std::uint32_t channels : {3u, 6u, 8u}) {
        const Bytes output = outputWith({}, channels, stereo);
        EXPECT_TRUE(output == expectedWith(kFilm, channels, stereo)) << channels;
        EXPECT_TRUE(output == outputWith({{"preset", "film"}}, channels, stereo)) << channels;
    }
}

TEST(Room, PresetPlainIsTheOutputOfTheEngine)
{
    const Bytes stereo = stereoOf(9000, kS24);
    for (const std::uint32_t channels : {3u, 6u, 8u})
        EXPECT_TRUE(outputWith({{"preset", "plain"}}, channels, stereo) == upmixOf(stereo, kS24, kRateHz, channels))
            << channels;
}

TEST(Room, EveryControlChangesTheOutputAsThatOfAStream)
{
    const Bytes stereo = loudStereo(9000);
    const Bytes unchanged = outputWith({}, 6, stereo);
    struct Control
    {
        const char* name;
        const char* value;
        RoomSettings settings;
    };
    for (const auto& [name, value, settings] :
         {Control{"centre-gain", "6", filmBut([](RoomSettings& room) { room.centreDb = 6.0; })},
          Control{"centre-gain", "-60", filmBut([](RoomSettings& room) { room.centreDb = -60.0; })},
          Control{"width", "0.25", filmBut([](RoomSettings& room) { room.width = 0.25; })},
          Control{"surround-gain", "3", filmBut([](RoomSettings& room) { room.surroundDb = 3.0; })},
          Control{"surround-gain", "-60", filmBut([](RoomSettings& room) { room.surroundDb.reset(); })},
          Control{"lfe-gain", "-3", filmBut([](RoomSettings& room) { room.lfeDb = -3.0; })},
          Control{"bass", "steered", filmBut([](RoomSettings& room) { room.bass = BassMode::Steered; })},
          Control{"make-up-gain", "-6", filmBut([](RoomSettings& room) { room.gainDb = -6.0; })},
          Control{"limiter", "false", filmBut([](RoomSettings& room) { room.limiter = false; })}}) {
        const Bytes output = outputWith({{name, value}}, 6, stereo);
        EXPECT_TRUE(output == expectedWith(settings, 6, stereo)) << name << ' ' << value;
        EXPECT_FALSE(output == unchanged) << name << ' ' << value;
    }
}

/// The values of the properties that a preset sets.
RoomSettings settingsOf(const Element& element)
{
    RoomSettings settings;
    gdouble surroundDb = 0.0;
    gdouble lfeDb = 0.0;
    gint bass = 0;
    gboolean limiter = FALSE;
    g_object_get(element.element(), "centre-gain", &settings.centreDb, "width", &settings.width, "surround-gain",
                 &surroundDb, "lfe-gain", &lfeDb, "bass", &bass, "make-up-gain", &settings.gainDb, "limiter", &limiter,
                 nullptr);
    if (surroundDb > zrk_tarn::kMinGainDb) settings.surroundDb = surroundDb;
    if (lfeDb > zrk_tarn::kMinGainDb) settings.lfeDb = lfeDb;
    settings.bass = static_cast<BassMode>(bass);
    settings.limiter = limiter;
    return settings;
}

TEST(Room, PresetsSetTheOtherPropertiesAndNotifyThem)
{
    Element element(capsOf(kS16, kRateHz), nullptr, nullptr);
    EXPECT_TRUE(settingsOf(element) == kFilm);
    std::map<std::string, int> notifications;
    g_signal_connect(element.element(), "notify",
                     G_CALLBACK(+[](GObject*, GParamSpec* spec, std::map<std::string, int>* counts) {
                         ++(*counts)[g_param_spec_get_name(spec)];
                     }),
                     &notifications);
    int set = 0;
    for (const auto& [name, settings] : zrk_tarn::kPresets) {
        element.set("preset", name);
        ++set;
        EXPECT_TRUE(settingsOf(element) == settings) << name;
        for (const char* const property :
             {"preset", "centre-gain", "width", "surround-gain", "bass", "lfe-gain", "make-up-gain", "limiter"})
            EXPECT_EQ(notifications[property], set) << property;
    }
    EXPECT_EQ(notifications.size(), 8);

    element.set("preset", "voice");
    element.set("width", "0.5");
    RoomSettings changed = zrk_tarn::presetNamed("voice")->settings;
    changed.width = 0.5;
    EXPECT_TRUE(settingsOf(element) == changed) << "the other values of the preset stay";
    gint preset = -1;
    g_object_get(element.element(), "preset", &preset, nullptr);
    EXPECT_STREQ(zrk_tarn::kPresets[preset].name, "voice");
}

TEST(Room, StereoOutputChangesTheLevelOfVoicesOnly)
{
    const Bytes stereo = loudStereo(9000);
    EXPECT_TRUE(outputWith({}, 2, stereo) == stereo);
    EXPECT_TRUE(outputWith({{"width", "0"}, {"bass", "steered"}}, 2, stereo) == stereo);
    for (const auto& [value, gainDb] : {std::pair{"6", 6.0}, std::pair{"-60", -60.0}}) {
        const RoomSettings settings = filmBut([gainDb = gainDb](RoomSettings& room) {
            room.centreDb = gainDb;
            room.gainDb = 0.0;
        });
        const Bytes output = outputWith({{"centre-gain", value}}, 2, stereo);
        EXPECT_TRUE(output == expectedWith(settings, 2, stereo)) << value;
        EXPECT_FALSE(output == stereo) << value;
    }
}

TEST(Room, StereoOutputHasAMakeUpGainIfItIsSet)
{
    const Bytes stereo = loudStereo(9000);
    for (const auto& [value, gainDb] : {std::pair{"-6", -6.0}, std::pair{"3", 3.0}}) {
        const RoomSettings settings = filmBut([gainDb = gainDb](RoomSettings& room) { room.gainDb = gainDb; });
        const Bytes output = outputWith({{"make-up-gain", value}}, 2, stereo);
        EXPECT_TRUE(output == expectedWith(settings, 2, stereo)) << value;
        EXPECT_FALSE(output == stereo) << value;
        EXPECT_TRUE(outputWith({{"make-up-gain", value}, {"preset", "film"}}, 2, stereo) == stereo) << value;
    }
}

TEST(Room, ControlsSwitchWhilePlaying)
{
    const Bytes stereo = loudStereo(12000);
    const Properties changes = {{"centre-gain", "-6"}, {"width", "0.25"},        {"surround-gain", "3"},
                                {"bass", "steered"},   {"make-up-gain", "12"},   {"limiter", "false"},
                                {"preset", "music"},   {"surround-gain", "-60"}, {"limiter", "true"},
                                {"preset", "plain"},   {"preset", "film"}};
    Element element(capsOf(kS24, kRateHz), "audio/x-raw, channels=8", nullptr);
    Peer peer(8, kFilm);
    for (std::size_t i = 0; i < 12; ++i) {
        const auto part = std::span(stereo).subspan(6 * 1000 * i, 6 * 1000);
        peer.push(part);
        element.push(part, timeOf(1000 * i, kRateHz));
        if (i == changes.size()) break;
        element.set(changes[i].first, changes[i].second);
        peer.apply(settingsOf(element));
    }
    element.end();
    EXPECT_TRUE(element.output() == peer.drained());
}

TEST(Room, MakeUpGainReturnsAfterStereo)
{
    const Bytes stereo = stereoOf(3000, kS24);
    Element element(capsOf(kS24, kRateHz), "audio/x-raw, channels=2", nullptr);
    element.pushAll(stereo, kS24, kRateHz);
    gst_harness_set_sink_caps_str(element.harness(), "audio/x-raw, channels=6");
    gst_harness_push_upstream_event(element.harness(), gst_event_new_reconfigure());
    element.pushAll(stereo, kS24, kRateHz, {1024}, 3000);
    element.end();
    Bytes expected = stereo;
    const Bytes upmix = expectedWith(kFilm, 6, stereo);
    expected.insert(expected.end(), upmix.begin(), upmix.end());
    EXPECT_TRUE(element.output() == expected);
}

} // namespace

} // namespace tests
