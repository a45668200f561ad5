// The LV2 plug-in in a host built on lilv: its description, its samples and its real-time safety.
// SPDX-License-Identifier: MIT
#include "stream/gain.h"
#include "stream/upmix_stream.h"
#include "tests/realtime/call_guard.h"
#include "tests/realtime/kernel_guard.h"
#include "tests/support/float_environment.h"
#include "tests/support/random.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <lilv/lilv.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tests
{

namespace
{

using zrk_tarn::SteeringMode;
using zrk_tarn::StreamConfiguration;
using zrk_tarn::StreamMeters;
using zrk_tarn::UpmixStream;

constexpr std::size_t kLatency = UpmixStream::latencyFrames();
constexpr std::uint32_t kMaxFrames = 2048;

using Row = std::vector<float>;
using Stereo = std::array<Row, 2>;
using Upmixed = std::array<Row, 3>;

/// The plug-ins on LV2_PATH, with this one among them.
struct World
{
    std::unique_ptr<LilvWorld, void (*)(LilvWorld*)> world{lilv_world_new(), lilv_world_free};
    const LilvPlugin* plugin = nullptr;

    World()
    {
        lilv_world_load_all(world.get());
        const Node uri = node("urn:tarn:upmix");
        plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world.get()), uri.get());
        if (plugin == nullptr) throw std::runtime_error("lilv does not find the plug-in on LV2_PATH");
    }

    using Node = std::unique_ptr<LilvNode, void (*)(LilvNode*)>;
    Node node(const char* uri) const { return {lilv_new_uri(world.get(), uri), lilv_node_free}; }

    /// The index of a port.
    std::uint32_t port(const std::string& symbol) const
    {
        const Node name{lilv_new_string(world.get(), symbol.c_str()), lilv_node_free};
        const LilvPort* const port = lilv_plugin_get_port_by_symbol(plugin, name.get());
        if (port == nullptr) throw std::runtime_error("no port " + symbol);
        return lilv_port_get_index(plugin, port);
    }

    /// The symbol of the port of a class with a designation.
    std::string designated(const char* portClass, const char* designation) const
    {
        const LilvPort* const port =
            lilv_plugin_get_port_by_designation(plugin, node(portClass).get(), node(designation).get());
        return port == nullptr ? "" : lilv_node_as_string(lilv_port_get_symbol(plugin, port));
    }
};

const World& world()
{
    static const World theWorld;
    return theWorld;
}

/// The messages of the plug-in in LV2's log.
std::string logged;

LV2_URID mapUri(LV2_URID_Map_Handle /*handle*/, const char* uri)
{
    return uri == std::string(LV2_LOG__Error) ? 7 : 1;
}

int logArguments(LV2_Log_Handle /*handle*/, LV2_URID type, const char* format, va_list arguments)
{
    char text[500];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    logged += (type == 7 ? "error: " : "not an error: ") + std::string(text);
    return length;
}

// NOLINTNEXTLINE(cert-dcl50-cpp): as LV2 declares it
int logMessage(LV2_Log_Handle handle, LV2_URID type, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = logArguments(handle, type, format, arguments);
    va_end(arguments);
    return length;
}

/// Creates an instance at a rate; null if the plug-in refuses.
LilvInstance* instanceAt(double rateHz)
{
    static LV2_URID_Map map{nullptr, mapUri};
    static LV2_Log_Log log{nullptr, logMessage, logArguments};
    static const LV2_Feature features[] = {{LV2_URID__map, &map}, {LV2_LOG__log, &log}};
    static const LV2_Feature* const list[] = {&features[0], &features[1], nullptr};
    return lilv_plugin_instantiate(world().plugin, rateHz, list);
}

/// An activated instance with all ports connected.
class Host
{
public:
    explicit Host(double rateHz = 48000) : lilv(instanceAt(rateHz), lilv_instance_free)
    {
        if (lilv == nullptr) throw std::runtime_error("no instance");
        std::vector<float> defaults(lilv_plugin_get_num_ports(world().plugin));
        lilv_plugin_get_port_ranges_float(world().plugin, nullptr, nullptr, defaults.data());
        values = defaults;
        for (std::uint32_t port = 0; port < values.size(); ++port) connect(port, &values[port]);
        lilv_instance_activate(lilv.get());
    }

    void connect(std::uint32_t port, void* memory) { lilv_instance_connect_port(lilv.get(), port, memory); }

    /// Runs the instance. Outputs can have the memory of inputs.
    void run(float* left, float* right, const std::array<float*, 3>& output, std::uint32_t frames)
    {
        connect(world().port("in_left"), left);
        connect(world().port("in_right"), right);
        connect(world().port("out_left"), output[0]);
        connect(world().port("out_right"), output[1]);
        connect(world().port("out_centre"), output[2]);
        lilv_instance_run(lilv.get(), frames);
    }

    void reactivate()
    {
        lilv_instance_deactivate(lilv.get());
        lilv_instance_activate(lilv.get());
    }

    LilvInstance* instance() { return lilv.get(); }

    float& value(const std::string& symbol) { return values[world().port(symbol)]; }

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

/// The expected output, from a stream of the library.
Upmixed expected(
    const Stereo& stereo, std::uint32_t rateHz = 48000, const std::function<void(UpmixStream&)>& setUp = [](auto&) {})
{
    StreamConfiguration configuration;
    configuration.sampleRateHz = rateHz;
    UpmixStream stream(configuration);
    setUp(stream);
    const std::size_t frames = stereo[0].size();
    Upmixed upmixed{Row(frames), Row(frames), Row(frames)};
    const float* const input[] = {stereo[0].data(), stereo[1].data()};
    float* const output[] = {upmixed[0].data(), upmixed[1].data(), upmixed[2].data()};
    stream.processPlanar(input, output, frames);
    return upmixed;
}

/// Runs a host in buffers of random sizes, including 0.
Upmixed played(Host& host, Stereo stereo, std::uint64_t seed = 1)
{
    Random random(seed);
    const std::size_t frames = stereo[0].size();
    Upmixed upmixed{Row(frames), Row(frames), Row(frames)};
    for (std::size_t done = 0; done < frames;) {
        constexpr std::uint32_t kSizes[] = {0, 1, 37, 63, 64, 65, 100, 1023, 1024, kMaxFrames};
        const std::uint32_t size = random.chance(2) ? random.oneOf(kSizes) : random.below(kMaxFrames);
        const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(size, frames - done));
        // Buffers of the exact size, so that sanitizers see accesses beyond it.
        Row left(stereo[0].begin() + static_cast<std::ptrdiff_t>(done),
                 stereo[0].begin() + static_cast<std::ptrdiff_t>(done + count));
        Row right(stereo[1].begin() + static_cast<std::ptrdiff_t>(done),
                  stereo[1].begin() + static_cast<std::ptrdiff_t>(done + count));
        host.run(left.data(), right.data(), {&upmixed[0][done], &upmixed[1][done], &upmixed[2][done]}, count);
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
    EXPECT_EQ(world().designated(LV2_CORE__InputPort, (pg + "left").c_str()), "in_left");
    EXPECT_EQ(world().designated(LV2_CORE__InputPort, (pg + "right").c_str()), "in_right");
    EXPECT_EQ(world().designated(LV2_CORE__OutputPort, (pg + "left").c_str()), "out_left");
    EXPECT_EQ(world().designated(LV2_CORE__OutputPort, (pg + "right").c_str()), "out_right");
    EXPECT_EQ(world().designated(LV2_CORE__OutputPort, (pg + "center").c_str()), "out_centre");
    EXPECT_EQ(world().designated(LV2_CORE__InputPort, LV2_CORE__enabled), "enabled");
    EXPECT_EQ(world().designated(LV2_CORE__OutputPort, LV2_CORE__latency), "latency");
    ASSERT_TRUE(lilv_plugin_has_latency(world().plugin));
    EXPECT_EQ(lilv_plugin_get_latency_port_index(world().plugin), world().port("latency"));
    EXPECT_TRUE(lilv_plugin_has_feature(world().plugin, world().node(LV2_CORE__hardRTCapable).get()));
    EXPECT_EQ(lilv_plugin_get_num_ports(world().plugin), 41u);
    EXPECT_EQ(world().port("left_right_16") + 1, world().port("front_back_1"));
    EXPECT_EQ(world().port("front_back_16"), 40u);
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
        Upmixed given;
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
    for (Upmixed& upmixed : given) upmixed = {Row(30000), Row(30000), Row(30000)};
    for (std::size_t done = 0; done < 30000; done += 100)
        for (std::size_t i = 0; i < 2; ++i) {
            Row left(&stereo[i][0][done], &stereo[i][0][done] + 100);
            Row right(&stereo[i][1][done], &stereo[i][1][done] + 100);
            hosts[i].run(left.data(), right.data(), {&given[i][0][done], &given[i][1][done], &given[i][2][done]}, 100);
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
        Upmixed given{Row(30000), Row(30000), Row(30000)};
        bool kept = true;
        for (std::size_t done = 0; done < 30000; done += 100) {
            const CallersEnvironment environment(callers);
            host.run(&stereo[0][done], &stereo[1][done], {&given[0][done], &given[1][done], &given[2][done]}, 100);
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
        const auto sample = static_cast<float>(0.5 * std::sin(0.01 * static_cast<double>(i)));
        for (Row& row : stereo) row.push_back(sample);
    }
    const Upmixed wet = expected(stereo);
    const Upmixed dry = expected(stereo, 48000, [](UpmixStream& stream) { stream.setBypass(true); });

    // Off from 20000 to 40000, which are not block borders.
    Host host;
    Upmixed given{Row(kFrames), Row(kFrames), Row(kFrames)};
    for (std::size_t done = 0; done < kFrames; done += kBuffer) {
        host.value("enabled") = done >= 20000 && done < 40000 ? 0.0f : 1.0f;
        host.run(&stereo[0][done], &stereo[1][done], {&given[0][done], &given[1][done], &given[2][done]}, kBuffer);
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

TEST(Lv2, AppliesModeAndGain)
{
    const Stereo stereo = movingSource(40000);
    Host host;
    host.value("mode") = 2.0f;
    host.value("gain") = -6.0f;
    const Upmixed given = played(host, stereo);
    EXPECT_EQ(given, expected(stereo, 48000, [](UpmixStream& stream) {
                  stream.setMode(SteeringMode::Calm);
                  stream.setMakeUpGain(zrk_tarn::gainFactor(-6.0));
              }));
    EXPECT_NE(given, expected(stereo));
    EXPECT_NE(given, expected(stereo, 48000, [](UpmixStream& stream) { stream.setMode(SteeringMode::Calm); }));
}

TEST(Lv2, RoundsControlsAndReadsNanAsTheDefault)
{
    const Stereo stereo = movingSource(20000);
    const auto with = [&](float enabled, float mode, float gain) {
        Host host;
        host.value("enabled") = enabled;
        host.value("mode") = mode;
        host.value("gain") = gain;
        return played(host, stereo);
    };
    const Upmixed fast = with(1.0f, 1.0f, 0.0f);
    const Upmixed calm = with(1.0f, 2.0f, 0.0f);
    ASSERT_NE(fast, calm);
    EXPECT_EQ(with(0.1f, 1.4f, 0.0f), fast);
    EXPECT_EQ(with(1.0f, std::nextafter(1.5f, 0.0f), 0.0f), fast);
    EXPECT_EQ(with(1.0f, 1.5f, 0.0f), calm);
    EXPECT_EQ(with(7.0f, 1.6f, 0.0f), calm);
    EXPECT_EQ(with(-1.0f, 1.0f, 0.0f), with(0.0f, 1.0f, 0.0f));
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(with(kNone, kNone, kNone), fast);
}

TEST(Lv2, ReportsTheSteeringOfEveryGroup)
{
    const Stereo stereo = movingSource(30000);
    StreamMeters meters{};
    Host host;
    UpmixStream stream{StreamConfiguration{}};
    Upmixed unused{Row(30000), Row(30000), Row(30000)};
    bool moved = false;
    for (std::size_t done = 0; done < 30000; done += 1000) {
        const float* const input[] = {&stereo[0][done], &stereo[1][done]};
        float* const output[] = {&unused[0][done], &unused[1][done], &unused[2][done]};
        stream.processPlanar(input, output, 1000);
        meters = stream.meters();
        Row left(input[0], input[0] + 1000);
        Row right(input[1], input[1] + 1000);
        host.run(left.data(), right.data(), {output[0], output[1], output[2]}, 1000);
        for (std::size_t group = 0; group < 16; ++group) {
            const std::string number = std::to_string(group + 1);
            EXPECT_EQ(host.value("left_right_" + number), meters.leftRight[group]) << done;
            EXPECT_EQ(host.value("front_back_" + number), meters.frontBack[group]) << done;
            moved = moved || std::abs(meters.leftRight[group]) > 0.5f;
        }
    }
    EXPECT_TRUE(moved);
}

TEST(Lv2, WorksWithUnconnectedPorts)
{
    const Stereo stereo = movingSource(20000);
    Host host;
    for (std::uint32_t port = world().port("latency"); port < lilv_plugin_get_num_ports(world().plugin); ++port)
        host.connect(port, nullptr);
    host.connect(1000, nullptr);
    EXPECT_EQ(played(host, stereo), expected(stereo));
}

TEST(Lv2, RunNeverAllocatesLocksOrMakesASystemCall)
{
    const Stereo stereo = movingSource(30000);
    Host host;
    Row left(stereo[0]);
    Row right(stereo[1]);
    Upmixed given{Row(30000), Row(30000), Row(30000)};
    float& gain = host.value("gain");
    float& enabled = host.value("enabled");
    float& mode = host.value("mode");
    host.run(left.data(), right.data(), {given[0].data(), given[1].data(), given[2].data()}, 0);
    LilvInstance* const instance = host.instance();
    const auto work = [&] {
        for (std::uint32_t i = 0; i < 100; ++i) {
            gain = -static_cast<float>(i);
            enabled = i % 7 == 0 ? 0.0f : 1.0f;
            mode = i % 5 == 0 ? 2.0f : 1.0f;
            lilv_instance_run(instance, i * 17);
        }
    };
    EXPECT_EQ(forbiddenCallsOf(work), ForbiddenCalls{});
    EXPECT_NE(forbiddenCallsOf([&] { Host other; }), ForbiddenCalls{}); // allocates
    const auto calls = systemCallsOf(work);
    if (!calls) GTEST_SKIP() << "the kernel has no filter of system calls";
    EXPECT_EQ(*calls, 0u);
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
