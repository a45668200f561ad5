// The LV2 plug-ins in a host built on lilv: their description, their samples and their real-time safety.
// SPDX-License-Identifier: MIT
#include "stream/gain.h"
#include "stream/presets.h"
#include "tests/realtime/call_guard.h"
#include "tests/realtime/kernel_guard.h"
#include "tests/realtime/stack_bytes.h"
#include "tests/support/float_environment.h"
#include "tests/support/random.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

std::atomic<unsigned> powers = 0; ///< calls of pow by any library

} // namespace

/// Counts a call and forwards it to the C library.
extern "C" double pow(double base, double exponent) noexcept
{
    static const auto next = reinterpret_cast<double (*)(double, double)>(dlsym(RTLD_NEXT, "pow"));
    ++powers;
    return next(base, exponent);
}

namespace tests
{

namespace
{

using zrk_tarn::BassMode;
using zrk_tarn::OutputSlot;
using zrk_tarn::RoomSettings;
using zrk_tarn::SteeringMode;
using zrk_tarn::StreamConfiguration;
using zrk_tarn::StreamMeters;
using zrk_tarn::UpmixStream;

constexpr std::size_t kLatency = UpmixStream::latencyFrames({.limiter = true});
constexpr std::uint32_t kMaxFrames = 2048;

using Row = std::vector<float>;
using Stereo = std::array<Row, 2>;
using Upmixed = std::vector<Row>;

/// A plug-in: its outputs, and the preset that its defaults equal.
struct Variant
{
    const char* uri;
    const char* group; ///< of its outputs
    const char* defaults;
    double gainDb; ///< by default
    struct Output
    {
        const char* symbol;
        const char* designation;
        OutputSlot slot;
    };
    std::vector<Output> outputs;
};

using enum OutputSlot::Source;

const Variant k30 = {
    "urn:tarn:upmix",
    "DiscreteGroup",
    "film",
    3.0,
    {{"out_left", "left", {Engine, 0}}, {"out_right", "right", {Engine, 1}}, {"out_centre", "center", {Engine, 2}}}};

const Variant k51 = {"urn:tarn:upmix-5.1",
                     "FivePointZeroGroup",
                     "film",
                     3.0,
                     {{"out_left", "left", {Engine, 0}},
                      {"out_right", "right", {Engine, 1}},
                      {"out_centre", "center", {Engine, 2}},
                      {"out_rear_left", "rearLeft", {Surround, 0}},
                      {"out_rear_right", "rearRight", {Surround, 1}}}};

const Variant k71 = {"urn:tarn:upmix-7.1",
                     "DiscreteGroup",
                     "film",
                     3.0,
                     {{"out_left", "left", {Engine, 0}},
                      {"out_right", "right", {Engine, 1}},
                      {"out_centre", "center", {Engine, 2}},
                      {"out_rear_left", "rearLeft", {Surround, 2}},
                      {"out_rear_right", "rearRight", {Surround, 3}},
                      {"out_side_left", "sideLeft", {Surround, 0}},
                      {"out_side_right", "sideRight", {Surround, 1}}}};

const Variant kDialogue = {"urn:tarn:dialogue",
                           "StereoGroup",
                           "voice",
                           0.0,
                           {{"out_left", "left", {Dialogue, 0}}, {"out_right", "right", {Dialogue, 1}}}};

const Variant* const kVariants[] = {&k30, &k51, &k71, &kDialogue};

using Node = std::unique_ptr<LilvNode, void (*)(LilvNode*)>;

/// The plug-ins on LV2_PATH.
struct World
{
    std::unique_ptr<LilvWorld, void (*)(LilvWorld*)> world{lilv_world_new(), lilv_world_free};

    World() { lilv_world_load_all(world.get()); }

    Node node(const std::string& uri) const { return {lilv_new_uri(world.get(), uri.c_str()), lilv_node_free}; }
    Node text(const std::string& text) const { return {lilv_new_string(world.get(), text.c_str()), lilv_node_free}; }
};

const World& world()
{
    static const World theWorld;
    return theWorld;
}

/// A plug-in as lilv sees it.
struct PluginInfo
{
    const LilvPlugin* plugin;

    explicit PluginInfo(const Variant& variant)
        : plugin(
              lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world().world.get()), world().node(variant.uri).get()))
    {
        if (plugin == nullptr) throw std::runtime_error("lilv does not find the plug-in on LV2_PATH");
    }

    /// The index of a port.
    std::uint32_t port(const std::string& symbol) const
    {
        const LilvPort* const port = lilv_plugin_get_port_by_symbol(plugin, world().text(symbol).get());
        if (port == nullptr) throw std::runtime_error("no port " + symbol);
        return lilv_port_get_index(plugin, port);
    }

    bool has(const std::string& symbol) const
    {
        return lilv_plugin_get_port_by_symbol(plugin, world().text(symbol).get()) != nullptr;
    }

    /// The symbol of the port of a class with a designation.
    std::string designated(const std::string& portClass, const std::string& designation) const
    {
        const LilvPort* const port =
            lilv_plugin_get_port_by_designation(plugin, world().node(portClass).get(), world().node(designation).get());
        return port == nullptr ? "" : lilv_node_as_string(lilv_port_get_symbol(plugin, port));
    }
};

/// The messages of the plug-in in LV2's log.
std::string logged;

LV2_URID mapUri(LV2_URID_Map_Handle /*handle*/, const char* uri)
{
    static std::vector<std::string> uris;
    const auto found = std::find(uris.begin(), uris.end(), uri);
    if (found == uris.end()) {
        uris.emplace_back(uri);
        return static_cast<LV2_URID>(uris.size());
    }
    return static_cast<LV2_URID>(found - uris.begin() + 1);
}

int logText(LV2_URID type, const char (&text)[500])
{
    logged += (type == mapUri(nullptr, LV2_LOG__Error) ? "error: " : "not an error: ") + std::string(text);
    return 0;
}

int logArguments(LV2_Log_Handle /*handle*/, LV2_URID type, const char* format, va_list arguments)
{
    char text[500];
    std::vsnprintf(text, sizeof text, format, arguments);
    return logText(type, text);
}

// NOLINTNEXTLINE(cert-dcl50-cpp): as LV2 declares it
int logMessage(LV2_Log_Handle /*handle*/, LV2_URID type, const char* format, ...)
{
    char text[500];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return logText(type, text);
}

/// Creates an instance at a rate; null if the plug-in refuses.
LilvInstance* instanceAt(double rateHz, const Variant& variant = k30)
{
    static LV2_URID_Map map{nullptr, mapUri};
    static LV2_Log_Log log{nullptr, logMessage, logArguments};
    static const LV2_Feature features[] = {{LV2_URID__map, &map}, {LV2_LOG__log, &log}};
    static const LV2_Feature* const list[] = {&features[0], &features[1], nullptr};
    return lilv_plugin_instantiate(PluginInfo(variant).plugin, rateHz, list);
}

/// An activated instance with all ports connected, and the defaults of the controls.
class Host
{
public:
    explicit Host(double rateHz = 48000, const Variant& hostVariant = k30)
        : variant(hostVariant), info(hostVariant), lilv(instanceAt(rateHz, hostVariant), lilv_instance_free)
    {
        if (lilv == nullptr) throw std::runtime_error("no instance");
        values.resize(lilv_plugin_get_num_ports(info.plugin));
        lilv_plugin_get_port_ranges_float(info.plugin, nullptr, nullptr, values.data());
        for (std::uint32_t port = 0; port < values.size(); ++port) connect(port, &values[port]);
        lilv_instance_activate(lilv.get());
    }

    explicit Host(const Variant& hostVariant) : Host(48000, hostVariant) {}

    void connect(std::uint32_t port, void* memory) { lilv_instance_connect_port(lilv.get(), port, memory); }

    /// Runs the instance. Outputs can have the memory of inputs.
    void run(float* left, float* right, const std::vector<float*>& output, std::uint32_t frames)
    {
        connect(info.port("in_left"), left);
        connect(info.port("in_right"), right);
        for (std::size_t i = 0; i < output.size(); ++i) connect(info.port(variant.outputs[i].symbol), output[i]);
        lilv_instance_run(lilv.get(), frames);
    }

    void reactivate()
    {
        lilv_instance_deactivate(lilv.get());
        lilv_instance_activate(lilv.get());
    }

    LilvInstance* instance() { return lilv.get(); }

    float& valueOf(std::uint32_t port) { return values[port]; }
    float& value(const std::string& symbol) { return valueOf(info.port(symbol)); }

    const Variant& variant;
    const PluginInfo info;

private:
    std::unique_ptr<LilvInstance, void (*)(LilvInstance*)> lilv;
    std::vector<float> values;
};

/// A moving source with noise.
Stereo movingSource(std::size_t frames, std::uint64_t seed = 1)
{
    Random random(seed);
    Stereo stereo;
    for (std::size_t i = 0; i < frames; ++i) {
        const Frame frame = frameOf(Signal::TravellingSource, i, random);
        stereo[0].push_back(static_cast<float>(0.7 * frame.left + 0.01 * random.uniform()));
        stereo[1].push_back(static_cast<float>(0.7 * frame.right + 0.01 * random.uniform()));
    }
    return stereo;
}

/// Pointers to the rows of a signal from a frame on.
std::vector<float*> from(Upmixed& rows, std::size_t frame)
{
    std::vector<float*> places;
    for (Row& row : rows) places.push_back(row.data() + frame);
    return places;
}

/// The default settings of a plug-in.
RoomSettings defaultsOf(const Variant& variant)
{
    RoomSettings settings = zrk_tarn::presetNamed(variant.defaults)->settings;
    settings.gainDb = variant.gainDb;
    return settings;
}

/// A stream of the library with the outputs of a plug-in and its default settings.
UpmixStream streamOf(const Variant& variant, std::uint32_t rateHz)
{
    StreamConfiguration configuration{
        .sampleRateHz = rateHz, .outputSlots = static_cast<std::uint32_t>(variant.outputs.size()), .limiter = true};
    for (std::size_t i = 0; i < variant.outputs.size(); ++i) configuration.outputs[i] = variant.outputs[i].slot;
    UpmixStream stream(configuration);
    zrk_tarn::applySettings(defaultsOf(variant), stream);
    return stream;
}

using Change = std::function<void(UpmixStream&)>;

/// The expected output, from a stream of the library.
Upmixed expected(
    const Variant& variant, const Stereo& stereo, std::uint32_t rateHz = 48000, const Change& setUp = [](auto&) {})
{
    UpmixStream stream = streamOf(variant, rateHz);
    setUp(stream);
    const std::size_t frames = stereo[0].size();
    Upmixed upmixed(variant.outputs.size(), Row(frames));
    const float* const input[] = {stereo[0].data(), stereo[1].data()};
    stream.processPlanar(input, from(upmixed, 0).data(), frames);
    return upmixed;
}

Upmixed expected(
    const Stereo& stereo, std::uint32_t rateHz = 48000, const Change& setUp = [](auto&) {})
{
    return expected(k30, stereo, rateHz, setUp);
}

/// Runs a host in buffers of random sizes, including 0.
Upmixed played(Host& host, Stereo stereo, std::uint64_t seed = 1)
{
    Random random(seed);
    const std::size_t frames = stereo[0].size();
    Upmixed upmixed(host.variant.outputs.size(), Row(frames));
    for (std::size_t done = 0; done < frames;) {
        constexpr std::uint32_t kSizes[] = {0, 1, 37, 63, 64, 65, 100, 1023, 1024, kMaxFrames};
        const std::uint32_t size = random.chance(2) ? random.oneOf(kSizes) : random.below(kMaxFrames);
        const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(size, frames - done));
        // Buffers of the exact size, so that sanitizers see accesses beyond it.
        Row left(stereo[0].begin() + static_cast<std::ptrdiff_t>(done),
                 stereo[0].begin() + static_cast<std::ptrdiff_t>(done + count));
        Row right(stereo[1].begin() + static_cast<std::ptrdiff_t>(done),
                  stereo[1].begin() + static_cast<std::ptrdiff_t>(done + count));
        host.run(left.data(), right.data(), from(upmixed, done), count);
        done += count;
    }
    return upmixed;
}

bool isSilent(const Row& row)
{
    return std::all_of(row.begin(), row.end(), [](float sample) { return sample == 0.0f; });
}

} // namespace

TEST(Lv2, DescribesChannelsLatencyAndBypassWithDesignations)
{
    const std::string pg = "http://lv2plug.in/ns/ext/port-groups#";
    for (const Variant* const variant : kVariants) {
        const PluginInfo info(*variant);
        EXPECT_EQ(info.designated(LV2_CORE__InputPort, pg + "left"), "in_left");
        EXPECT_EQ(info.designated(LV2_CORE__InputPort, pg + "right"), "in_right");
        std::uint32_t index = 2;
        for (const Variant::Output& output : variant->outputs) {
            EXPECT_EQ(info.designated(LV2_CORE__OutputPort, pg + output.designation), output.symbol) << variant->uri;
            EXPECT_EQ(info.port(output.symbol), index++) << variant->uri;
        }
        EXPECT_TRUE(lilv_world_ask(world().world.get(), world().node(variant->uri + std::string("#out")).get(),
                                   world().node("http://www.w3.org/1999/02/22-rdf-syntax-ns#type").get(),
                                   world().node(pg + variant->group).get()));
        EXPECT_EQ(info.designated(LV2_CORE__InputPort, LV2_CORE__enabled), "enabled");
        EXPECT_EQ(info.designated(LV2_CORE__OutputPort, LV2_CORE__latency), "latency");
        ASSERT_TRUE(lilv_plugin_has_latency(info.plugin));
        EXPECT_EQ(lilv_plugin_get_latency_port_index(info.plugin), info.port("latency"));
        EXPECT_TRUE(lilv_plugin_has_feature(info.plugin, world().node(LV2_CORE__hardRTCapable).get()));
        // Sessions refer to ports by number: their order never changes, and new ones follow the others.
        EXPECT_EQ(info.port("latency") + 1, info.port("reduction"));
        std::uint32_t next = info.port("reduction") + 1;
        for (const char* const meter :
             {"left_right_", "front_back_", "group_level_", "group_place_", "group_centre_", "group_upper_hz_"})
            for (int group = 1; group <= 16; ++group)
                EXPECT_EQ(info.port(meter + std::to_string(group)), next++) << meter << group;
        EXPECT_EQ(info.has("group_surround_1"), info.has("surrounds")) << variant->uri;
        for (int group = 1; info.has("surrounds") && group <= 16; ++group)
            EXPECT_EQ(info.port("group_surround_" + std::to_string(group)), next++) << group;
        EXPECT_EQ(next, lilv_plugin_get_num_ports(info.plugin));
    }
}

/// The values of the controls for settings of the room.
std::vector<std::pair<std::string, double>> controlsOf(const RoomSettings& settings)
{
    return {{"gain", settings.gainDb},
            {"limiter", settings.limiter ? 1.0 : 0.0},
            {"centre", settings.centreDb},
            {"width", settings.width},
            {"bass", settings.bass == BassMode::Fronts ? 1.0 : 0.0},
            {"surrounds", settings.surroundDb.value_or(-60.0)}};
}

TEST(Lv2, ControlsHaveTheDefaultsOfTheCommand)
{
    for (const Variant* const variant : kVariants) {
        Host host(*variant);
        for (const auto& [symbol, value] : controlsOf(defaultsOf(*variant))) {
            const bool isExpected =
                variant != &kDialogue || symbol == "gain" || symbol == "limiter" || symbol == "centre";
            const bool needsSurrounds = symbol == "surrounds" && variant == &k30;
            ASSERT_EQ(host.info.has(symbol), isExpected && !needsSurrounds) << variant->uri << " " << symbol;
            if (host.info.has(symbol)) {
                EXPECT_EQ(host.value(symbol), static_cast<float>(value)) << variant->uri << " " << symbol;
            }
        }
    }
}

TEST(Lv2, ControlsHaveTheRangesOfTheCommandAndMetersTheirs)
{
    for (const Variant* const variant : kVariants) {
        const PluginInfo info(*variant);
        const std::uint32_t ports = lilv_plugin_get_num_ports(info.plugin);
        std::vector<float> lowest(ports);
        std::vector<float> highest(ports);
        lilv_plugin_get_port_ranges_float(info.plugin, lowest.data(), highest.data(), nullptr);
        for (const auto& [symbol, low, high] : {std::tuple{"gain", zrk_tarn::kMinGainDb, zrk_tarn::kMaxGainDb},
                                                {"centre", zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb},
                                                {"surrounds", zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb},
                                                {"width", 0.0, 1.0}}) {
            if (!info.has(symbol)) continue;
            EXPECT_EQ(lowest[info.port(symbol)], static_cast<float>(low)) << symbol;
            EXPECT_EQ(highest[info.port(symbol)], static_cast<float>(high)) << symbol;
        }
        EXPECT_EQ(highest[info.port("latency")], static_cast<float>(kLatency));
        for (const auto& [meter, low, high] : {std::tuple{"left_right_", -1.0f, 1.0f},
                                               {"front_back_", -1.0f, 1.0f},
                                               {"group_level_", -120.0f, 12.0f},
                                               {"group_place_", -1.0f, 1.0f},
                                               {"group_centre_", 0.0f, 1.0f},
                                               {"group_upper_hz_", 0.0f, 96000.0f},
                                               {"group_surround_", -120.0f, 12.0f}}) {
            for (int group = 1; group <= 16 && info.has(meter + std::to_string(group)); ++group) {
                EXPECT_EQ(lowest[info.port(meter + std::to_string(group))], low) << meter << group;
                EXPECT_EQ(highest[info.port(meter + std::to_string(group))], high) << meter << group;
            }
        }
    }
}

/// A preset of a plug-in, as hosts load it.
std::vector<std::pair<std::string, float>> presetValues(const Variant& variant, const std::string& name)
{
    const Node uri = world().node(variant.uri + ("#" + name));
    lilv_world_load_resource(world().world.get(), uri.get());
    LV2_URID_Map map{nullptr, mapUri};
    const std::unique_ptr<LilvState, void (*)(LilvState*)> state(
        lilv_state_new_from_world(world().world.get(), &map, uri.get()), lilv_state_free);
    std::vector<std::pair<std::string, float>> values;
    if (state == nullptr) return values;
    EXPECT_EQ(lilv_state_get_label(state.get()), name);
    lilv_state_emit_port_values(
        state.get(),
        [](const char* symbol, void* list, const void* value, std::uint32_t /*size*/, std::uint32_t type) {
            ASSERT_EQ(type, mapUri(nullptr, LV2_ATOM__Float)) << symbol;
            static_cast<decltype(values)*>(list)->emplace_back(symbol, *static_cast<const float*>(value));
        },
        &values);
    return values;
}

TEST(Lv2, PresetsHaveTheNamesAndSamplesOfTheCommand)
{
    const Stereo stereo = movingSource(20000);
    for (const Variant* const variant : kVariants) {
        const PluginInfo info(*variant);
        const std::unique_ptr<LilvNodes, void (*)(LilvNodes*)> presets(
            lilv_plugin_get_related(info.plugin, world().node("http://lv2plug.in/ns/ext/presets#Preset").get()),
            lilv_nodes_free);
        EXPECT_EQ(lilv_nodes_size(presets.get()), std::size(zrk_tarn::kPresets));
        for (const zrk_tarn::Preset& preset : zrk_tarn::kPresets) {
            RoomSettings settings = preset.settings;
            if (variant == &kDialogue) settings.gainDb = 0.0;
            Host host(*variant);
            const auto values = presetValues(*variant, preset.name);
            std::size_t controls = 0;
            for (const auto& [symbol, value] : controlsOf(settings)) controls += info.has(symbol) ? 1u : 0u;
            EXPECT_EQ(values.size(), controls) << "a preset sets every control of the room";
            for (const auto& [symbol, value] : values) host.value(symbol) = value;
            EXPECT_EQ(played(host, stereo),
                      expected(*variant, stereo, 48000,
                               [&](UpmixStream& stream) { zrk_tarn::applySettings(settings, stream); }))
                << variant->uri << ", " << preset.name;
        }
    }
}

TEST(Lv2, EveryLayoutHasTheSamplesOfTheLibrary)
{
    const Stereo stereo = movingSource(30000);
    for (const Variant* const variant : kVariants) {
        Host host(*variant);
        const Upmixed given = played(host, stereo);
        EXPECT_EQ(given, expected(*variant, stereo)) << variant->uri;
        for (const Row& row : given) EXPECT_FALSE(isSilent(row)) << variant->uri;
    }
}

TEST(Lv2, ReportsItsLatencyInARunWithoutFrames)
{
    Host host;
    host.value("latency") = 5.0f;
    host.run(nullptr, nullptr, {}, 0);
    EXPECT_EQ(host.value("latency"), static_cast<float>(kLatency));
}

TEST(Lv2, BufferSizesDoNotChangeSamplesAtAnyRate)
{
    const Stereo stereo = movingSource(40000);
    for (const std::uint32_t rateHz : zrk_tarn::kSampleRatesHz) {
        Host host(rateHz);
        EXPECT_EQ(played(host, stereo, rateHz), expected(stereo, rateHz)) << rateHz << " Hz";
    }
}

TEST(Lv2, RefusesOtherRatesWithALogMessage)
{
    for (const double rateHz : {0.0, -48000.0, 8000.0, 22050.0, 44100.5, 47999.0, 384000.0, 1e300,
                                std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        logged.clear();
        EXPECT_EQ(instanceAt(rateHz), nullptr) << rateHz;
        EXPECT_EQ(logged.find("error: Tarn upmix: not at "), 0u) << logged;
        EXPECT_NE(logged.find("32000, 44100, 48000, 64000, 88200, 96000 or 192000 Hz"), std::string::npos) << logged;
    }
}

TEST(Lv2, ProcessesInPlaceInAnyOrder)
{
    constexpr std::uint32_t kBuffer = 300;
    const Stereo stereo = movingSource(std::size_t{100} * kBuffer);
    const Upmixed reference = expected(stereo);
    // Memory of each output: that of the left input, of the right input, or its own.
    for (const std::array<std::size_t, 3>& places :
         {std::array<std::size_t, 3>{0, 1, 2}, {1, 0, 2}, {2, 1, 0}, {2, 0, 1}, {0, 2, 1}, {1, 2, 0}}) {
        Host host;
        Upmixed given(3);
        for (std::size_t done = 0; done < stereo[0].size(); done += kBuffer) {
            float memory[3][kBuffer] = {};
            std::copy_n(&stereo[0][done], kBuffer, memory[0]);
            std::copy_n(&stereo[1][done], kBuffer, memory[1]);
            host.run(memory[0], memory[1], {memory[places[0]], memory[places[1]], memory[places[2]]}, kBuffer);
            for (std::size_t row = 0; row < 3; ++row)
                given[row].insert(given[row].end(), memory[places[row]], memory[places[row]] + kBuffer);
        }
        EXPECT_EQ(given, reference) << places[0] << places[1] << places[2];
    }
}

TEST(Lv2, ActivationClearsTheSignal)
{
    const Stereo stereo = movingSource(20000);
    Host host;
    const Upmixed first = played(host, stereo, 2);
    ASSERT_FALSE(isSilent(first[2]));
    for (int times = 0; times < 3; ++times) {
        host.reactivate();
        EXPECT_EQ(played(host, stereo, 3), first);
    }
    host.reactivate();
    for (const Row& row : played(host, {Row(5000), Row(5000)})) EXPECT_TRUE(isSilent(row));
}

TEST(Lv2, InstancesAreIndependent)
{
    const Stereo stereo[] = {movingSource(30000, 1), movingSource(30000, 2)};
    Host hosts[] = {Host(44100), Host(96000)};
    Upmixed given[2];
    for (Upmixed& upmixed : given) upmixed.assign(3, Row(30000));
    for (std::size_t done = 0; done < 30000; done += 100)
        for (std::size_t i = 0; i < 2; ++i) {
            Row left(&stereo[i][0][done], &stereo[i][0][done] + 100);
            Row right(&stereo[i][1][done], &stereo[i][1][done] + 100);
            hosts[i].run(left.data(), right.data(), from(given[i], done), 100);
        }
    EXPECT_EQ(given[0], expected(stereo[0], 44100));
    EXPECT_EQ(given[1], expected(stereo[1], 96000));
}

TEST(Lv2, FloatingPointModeOfTheThreadDoesNotChangeSamples)
{
    // Decaying tones and silence, in which filters reach subnormal numbers.
    Stereo stereo = movingSource(30000);
    for (Row& row : stereo)
        for (std::size_t i = 10000; i < 30000; ++i) row[i] *= static_cast<float>(std::exp2(-0.02 * double(i - 10000)));
    const Upmixed reference = expected(stereo);
    for (const auto& [rounding, flushing, control] : allSettings()) {
        Host host;
        const FloatEnvironment callers{control, 0};
        Upmixed given(3, Row(30000));
        bool kept = true;
        for (std::size_t done = 0; done < 30000; done += 100) {
            const CallersEnvironment environment(callers);
            host.run(&stereo[0][done], &stereo[1][done], from(given, done), 100);
            kept = kept && currentEnvironment().control == control;
        }
        EXPECT_TRUE(kept) << rounding << ", " << flushing;
        EXPECT_EQ(given, reference) << rounding << ", " << flushing;
    }
}

TEST(Lv2, SwitchesOffAndOnWithoutAClick)
{
    // A tone in the middle: in the centre of the upmix, at the sides of the plain input.
    constexpr std::size_t kFrames = 60000;
    constexpr std::uint32_t kBuffer = 100;
    Stereo stereo;
    for (std::size_t i = 0; i < kFrames; ++i) {
        const auto sample = static_cast<float>(0.5 * std::sin(0.03 * static_cast<double>(i)));
        for (Row& row : stereo) row.push_back(sample);
    }
    const Upmixed wet = expected(stereo);
    const Upmixed dry = expected(stereo, 48000, [](UpmixStream& stream) { stream.setBypass(true); });

    // Off from 20000 to 40000, which are not block borders.
    Host host;
    Upmixed given(3, Row(kFrames));
    for (std::size_t done = 0; done < kFrames; done += kBuffer) {
        host.value("enabled") = done >= 20000 && done < 40000 ? 0.0f : 1.0f;
        host.run(&stereo[0][done], &stereo[1][done], from(given, done), kBuffer);
    }

    for (std::size_t row = 0; row < 3; ++row) {
        double steepest = 0.0; // of both signals
        double apart = 0.0;
        for (std::size_t i = 15000; i < kFrames; ++i) {
            steepest = std::max({steepest, std::abs(double(wet[row][i]) - double(wet[row][i - 1])),
                                 std::abs(double(dry[row][i]) - double(dry[row][i - 1]))});
            apart = std::max(apart, std::abs(double(wet[row][i]) - double(dry[row][i])));
        }
        // A fade over 1024 frames adds 1/1024 of the distance to each step, and rounding one step of 24 bits.
        const double allowed = steepest + apart / 1024.0 + 0x1p-23;
        double steps = 0.0;
        for (std::size_t i = 15000; i < kFrames; ++i)
            steps = std::max(steps, std::abs(double(given[row][i]) - double(given[row][i - 1])));
        EXPECT_LE(steps, allowed) << row;
        EXPECT_GT(apart, 10.0 * allowed) << "a switch without a fade would not be noticed in output " << row;

        // Outside the fades, samples are exactly those of one signal.
        const auto same = [&](const Row& other, std::size_t from, std::size_t to) {
            return std::equal(given[row].begin() + static_cast<std::ptrdiff_t>(from),
                              given[row].begin() + static_cast<std::ptrdiff_t>(to),
                              other.begin() + static_cast<std::ptrdiff_t>(from));
        };
        EXPECT_TRUE(same(wet[row], 0, 20000)) << row;
        EXPECT_TRUE(same(dry[row], 20000 + 1024 + 128, 40000)) << row;
        EXPECT_TRUE(same(wet[row], 40000 + 1024 + 128, kFrames)) << row;
    }
}

TEST(Lv2, AppliesEveryControl)
{
    const Stereo stereo = movingSource(40000);
    struct Case
    {
        const Variant& variant;
        const char* symbol;
        float value;
        Change setUp;
    };
    const Case cases[] = {
        {k30, "mode", 2.0f, [](UpmixStream& stream) { stream.setMode(SteeringMode::Calm); }},
        {k30, "gain", -6.0f, [](UpmixStream& stream) { stream.setMakeUpGain(zrk_tarn::gainFactor(-6.0)); }},
        {k30, "gain", 18.0f, [](UpmixStream& stream) { stream.setMakeUpGain(zrk_tarn::gainFactor(18.0)); }},
        {k30, "limiter", 0.0f, [](UpmixStream& stream) { stream.setLimiting(false); }},
        {k30, "centre", -60.0f, [](UpmixStream& stream) { stream.setCentreGain(zrk_tarn::gainFactor(-60.0)); }},
        {k30, "width", 0.25f, [](UpmixStream& stream) { stream.setCentreWidth(0.25f); }},
        {k30, "bass", 0.0f, [](UpmixStream& stream) { stream.setBass(BassMode::Steered); }},
        {k51, "surrounds", 3.0f, [](UpmixStream& stream) { stream.setSurroundGain(zrk_tarn::gainFactor(3.0)); }},
        {k71, "surrounds", -60.0f, [](UpmixStream& stream) { stream.setSurroundGain(0.0f); }},
        {kDialogue, "centre", -9.5f, [](UpmixStream& stream) { stream.setCentreGain(zrk_tarn::gainFactor(-9.5)); }}};
    for (const Case& one : cases) {
        // The limiter works only at a high gain.
        const bool isLoud = one.symbol == std::string("limiter");
        const auto setUp = [&](UpmixStream& stream) {
            if (isLoud) stream.setMakeUpGain(zrk_tarn::gainFactor(12.0));
            one.setUp(stream);
        };
        Host host(one.variant);
        if (isLoud) host.value("gain") = 12.0f;
        host.value(one.symbol) = one.value;
        const Upmixed given = played(host, stereo);
        EXPECT_EQ(given, expected(one.variant, stereo, 48000, setUp)) << one.symbol << " " << one.value;
        EXPECT_NE(given, expected(one.variant, stereo)) << one.symbol << " " << one.value;
    }
}

TEST(Lv2, RoundsControlsAndReadsNanAsTheDefault)
{
    const Stereo stereo = movingSource(20000);
    const auto with = [&](const std::vector<std::pair<const char*, float>>& values) {
        Host host(k51);
        for (const auto& [symbol, value] : values) host.value(symbol) = value;
        return played(host, stereo);
    };
    const Upmixed fast = with({});
    const Upmixed calm = with({{"mode", 2.0f}});
    ASSERT_NE(fast, calm);
    EXPECT_EQ(with({{"enabled", 0.1f}, {"mode", 1.4f}, {"limiter", 0.1f}, {"bass", 0.1f}}), fast);
    EXPECT_EQ(with({{"mode", std::nextafter(1.5f, 0.0f)}}), fast);
    EXPECT_EQ(with({{"mode", 1.5f}}), calm);
    EXPECT_EQ(with({{"enabled", 7.0f}, {"mode", 1.6f}}), calm);
    EXPECT_EQ(with({{"enabled", -1.0f}}), with({{"enabled", 0.0f}}));
    EXPECT_EQ(with({{"bass", -1.0f}}), with({{"bass", 0.0f}}));
    EXPECT_EQ(with({{"surrounds", -100.0f}}), with({{"surrounds", -60.0f}}));
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(with({{"enabled", kNone},
                    {"mode", kNone},
                    {"gain", kNone},
                    {"limiter", kNone},
                    {"centre", kNone},
                    {"width", kNone},
                    {"bass", kNone},
                    {"surrounds", kNone}}),
              fast);
}

/// Expects the ports of the band groups to have the meters of a stream.
void expectGroups(Host& host, const StreamMeters& meters)
{
    const auto decibels = [](float level) { return 20.0f * std::log10(std::max(level, 1e-6f)); };
    const bool hasSurrounds = host.info.has("surrounds");
    for (std::size_t group = 0; group < 16; ++group) {
        const std::string number = std::to_string(group + 1);
        EXPECT_EQ(host.value("left_right_" + number), meters.leftRight[group]);
        EXPECT_EQ(host.value("front_back_" + number), meters.frontBack[group]);
        EXPECT_EQ(host.value("group_level_" + number), decibels(meters.groupLevel[group]));
        EXPECT_EQ(host.value("group_place_" + number), meters.groupPlace[group]);
        EXPECT_EQ(host.value("group_centre_" + number), meters.groupCentre[group]);
        EXPECT_EQ(host.value("group_upper_hz_" + number), meters.groupUpperHz[group]);
        if (!hasSurrounds) continue;
        EXPECT_EQ(host.value("group_surround_" + number), decibels(meters.groupSurround[group]));
    }
}

TEST(Lv2, ReportsTheBandGroupsAndTheReductionOfTheLimiter)
{
    const Stereo stereo = movingSource(30000);
    for (const Variant* const variant : {&k30, &k51, &k71}) {
        SCOPED_TRACE(variant->uri);
        Host host(*variant);
        host.value("gain") = 12.0f;
        UpmixStream stream = streamOf(*variant, 48000);
        stream.setMakeUpGain(zrk_tarn::gainFactor(12.0));
        Upmixed unused(variant->outputs.size(), Row(30000));
        bool moved = false;
        float greatest = 0.0f;
        for (std::size_t done = 0; done < 30000; done += 1000) {
            SCOPED_TRACE(done);
            const float* const input[] = {&stereo[0][done], &stereo[1][done]};
            stream.processPlanar(input, from(unused, done).data(), 1000);
            const StreamMeters meters = stream.meters();
            Row left(input[0], input[0] + 1000);
            Row right(input[1], input[1] + 1000);
            host.run(left.data(), right.data(), from(unused, done), 1000);
            expectGroups(host, meters);
            moved = moved || std::ranges::any_of(meters.leftRight, [](float place) { return std::abs(place) > 0.5f; });
            EXPECT_FLOAT_EQ(host.value("reduction"), -20.0f * std::log10(meters.limiterGain));
            greatest = std::max(greatest, host.value("reduction"));
        }
        EXPECT_TRUE(moved);
        EXPECT_GT(greatest, 3.0f);
        EXPECT_LT(greatest, 13.0f);
        EXPECT_EQ(std::ranges::max(stream.meters().groupSurround) > 0.001f, variant != &k30);
    }
}

TEST(Lv2, WritesTheMetersInEveryRun)
{
    Stereo stereo = movingSource(10000);
    Upmixed unused(k51.outputs.size(), Row(10000));
    Host host(k51);
    UpmixStream stream = streamOf(k51, 48000);
    const auto expectMetersAfter = [&](std::uint32_t frames) {
        SCOPED_TRACE(frames);
        const std::uint32_t ports = lilv_plugin_get_num_ports(host.info.plugin);
        for (std::uint32_t port = host.info.port("reduction"); port < ports; ++port) host.valueOf(port) = 5.0f;
        const float* const input[] = {stereo[0].data(), stereo[1].data()};
        stream.processPlanar(input, from(unused, 0).data(), frames);
        host.run(stereo[0].data(), stereo[1].data(), from(unused, 0), frames);
        expectGroups(host, stream.meters());
        EXPECT_EQ(host.value("reduction"), 0.0f);
    };
    expectMetersAfter(0);
    for (const std::uint32_t frames : {37u, 26u, 1u, 10000u, 37u, 64u, 0u}) expectMetersAfter(frames);
    host.reactivate();
    stream.reset();
    expectMetersAfter(37);
}

TEST(Lv2, WorksWithUnconnectedPorts)
{
    const Stereo stereo = movingSource(20000);
    for (const Variant* const variant : kVariants) {
        Host host(*variant);
        const std::uint32_t ports = lilv_plugin_get_num_ports(host.info.plugin);
        for (std::uint32_t port = host.info.port("latency"); port < ports; ++port) host.connect(port, nullptr);
        EXPECT_EQ(played(host, stereo), expected(*variant, stereo)) << variant->uri;
    }
}

TEST(Lv2, IgnoresConnectionsOfPortsThatDoNotExist)
{
    Stereo stereo = movingSource(kMaxFrames);
    for (const Variant* const variant : kVariants) {
        Host host(*variant);
        Upmixed given(variant->outputs.size(), Row(kMaxFrames));
        host.run(stereo[0].data(), stereo[1].data(), from(given, 0), 0); // connects
        Row elsewhere(kMaxFrames, std::numeric_limits<float>::quiet_NaN());
        const std::uint32_t ports = lilv_plugin_get_num_ports(host.info.plugin);
        for (const std::uint32_t port : {ports, ports + 1, 1000u, std::numeric_limits<std::uint32_t>::max()})
            host.connect(port, elsewhere.data());
        lilv_instance_run(host.instance(), kMaxFrames);
        EXPECT_EQ(given, expected(*variant, stereo)) << variant->uri;
        EXPECT_TRUE(std::ranges::all_of(elsewhere, [](float sample) { return std::isnan(sample); })) << variant->uri;
    }
}

TEST(Lv2, RunNeverAllocatesLocksOrMakesASystemCallAndNeedsLittleStack)
{
    bool hasFilter = true;
    for (const Variant* const variant : kVariants) {
        Stereo stereo = movingSource(kMaxFrames);
        Upmixed given(variant->outputs.size(), Row(kMaxFrames));
        Host host(*variant);
        host.run(stereo[0].data(), stereo[1].data(), from(given, 0), 0);
        // lilv allocates, to find ports.
        LilvInstance* const instance = host.instance();
        std::vector<float*> controls;
        for (const char* const symbol : {"enabled", "mode", "gain", "limiter", "centre", "width", "bass", "surrounds"})
            if (host.info.has(symbol)) controls.push_back(&host.value(symbol));
        const auto work = [&] {
            for (std::uint32_t i = 0; i < 200; ++i) {
                *controls[i % controls.size()] = static_cast<float>(i % 3);
                lilv_instance_run(instance, i * 10);
            }
        };
        work(); // binds functions
        EXPECT_EQ(forbiddenCallsOf(work), ForbiddenCalls{}) << variant->uri;
        EXPECT_NE(forbiddenCallsOf([&] { Host other; }), ForbiddenCalls{}); // allocates
        const auto calls = systemCallsOf(work);
        hasFilter = calls.has_value();
        EXPECT_EQ(calls.value_or(0), 0u) << variant->uri;
        EXPECT_LE(stackBytesOf(work), kMaxStackBytes) << variant->uri;
    }
    if (!hasFilter) GTEST_SKIP() << "the kernel has no filter of system calls";
}

TEST(Lv2, RunComputesPowersOnlyWhenAControlChanges)
{
    for (const Variant* const variant : kVariants) {
        Stereo stereo = movingSource(kMaxFrames);
        Upmixed given(variant->outputs.size(), Row(kMaxFrames));
        Host host(*variant);
        const auto powersOfRuns = [&] {
            const unsigned before = powers;
            for (const std::uint32_t frames : {0u, 37u, 64u, 1000u})
                host.run(stereo[0].data(), stereo[1].data(), from(given, 0), frames);
            return powers - before;
        };
        powersOfRuns();
        EXPECT_EQ(powersOfRuns(), 0u) << variant->uri;
        host.value("gain") = 1.0f;
        EXPECT_GT(powersOfRuns(), 0u) << variant->uri;
        EXPECT_EQ(powersOfRuns(), 0u) << variant->uri;
    }
}

TEST(Lv2, CreatesAndFreesManyInstances)
{
    for (std::size_t i = 0; i < 200; ++i) {
        const std::uint32_t rateHz = zrk_tarn::kSampleRatesHz[i % zrk_tarn::kSampleRatesHz.size()];
        Host host(rateHz);
        const Stereo stereo = movingSource(500);
        EXPECT_EQ(played(host, stereo), expected(stereo, rateHz));
    }
}

} // namespace tests
