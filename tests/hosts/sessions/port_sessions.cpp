// Random sessions with the LV2 and LADSPA plug-ins, as good and as bad hosts call them: port_sessions FILE [SESSIONS
// [FIRST_SEED]].
//
// Each session takes place twice at the same time, on two threads. The second host differs in what must not change a
// sample: it sets the floating-point mode, runs instances on other threads, creates others in between, and connects
// ports that do not exist. Everything that the plug-ins write has to be equal.
// SPDX-License-Identifier: MIT
#include "port_plugin.h"
#include "run_sessions.h"

#include "stream/upmix_stream.h"
#include "tests/support/float_environment.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <future>
#include <iterator>
#include <limits>
#include <memory>
#include <span>
#include <thread>
#include <utility>
#include <vector>

namespace tests
{

namespace
{

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kGuard = -123.25f; ///< fills memory that only outputs are connected to
constexpr auto kLatencyFrames = static_cast<float>(zrk_tarn::UpmixStream::latencyFrames({.limiter = true}));

using Row = std::vector<float>;

enum class Host
{
    Plain,
    Hostile
};

/// A float that hosts should not send, in one of three cases any bits.
float absurdFloat(Random& random)
{
    constexpr float kMax = std::numeric_limits<float>::max();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kSubnormal = std::numeric_limits<float>::denorm_min();
    constexpr float kFloats[] = {kNaN,      -kNaN,         std::numeric_limits<float>::signaling_NaN(),
                                 kInfinity, -kInfinity,    kMax,
                                 -kMax,     kSubnormal,    -kSubnormal,
                                 -0.0f,     2147483648.0f, -1e30f};
    return random.chance(3) ? std::bit_cast<float>(random.bits()) : random.oneOf(kFloats);
}

float controlValue(Random& random)
{
    constexpr float kUsual[] = {-60.0f, -48.0f, -12.0f, -3.0f, 0.0f, 0.25f, 0.5f, 1.0f, 1.5f, 2.0f, 3.0f, 4.0f, 18.0f};
    return random.chance(3) ? absurdFloat(random) : random.oneOf(kUsual);
}

void fillWithSignal(Row& row, Random& random)
{
    const std::uint32_t kind = random.below(4);
    const auto peak = static_cast<float>(std::exp2(-static_cast<double>(random.below(30))));
    for (float& sample : row) {
        sample = kind == 0 ? 0.0f : peak * static_cast<float>(random.uniform());
        if (kind == 3 && random.chance(50)) sample = absurdFloat(random);
    }
}

std::uint32_t runFrames(Random& random)
{
    constexpr std::uint32_t kFrames[] = {0, 1, 2, 63, 64, 65, 127, 128, 1000, 4096};
    if (random.chance(1000)) return 70000;
    return random.chance(2) ? random.oneOf(kFrames) : random.below(300);
}

bool isInput(PortKind kind)
{
    return kind == PortKind::AudioIn || kind == PortKind::ControlIn;
}

bool isAudio(PortKind kind)
{
    return kind == PortKind::AudioIn || kind == PortKind::AudioOut;
}

/// Whether floats have the same bits. All NaN values differ in operator==.
bool areEqual(std::span<const float> one, std::span<const float> other)
{
    const auto bits = [](float value) { return std::bit_cast<std::uint32_t>(value); };
    return std::ranges::equal(one, other, {}, bits, bits);
}

/// An instance and the memory of its ports. Several ports can have the same memory.
class Instance
{
public:
    Instance(const PortPlugin& instancePlugin, void* instanceHandle)
        : plugin(&instancePlugin), handle(instanceHandle, instancePlugin.cleanup), memory(instancePlugin.ports.size())
    {
        require(instanceHandle != nullptr, "no instance at a supported rate");
    }

    /// Connects a port to nothing, to memory of its own, or to that of another port.
    void connect(std::size_t port, Random& random)
    {
        const std::size_t size = isAudio(plugin->ports[port]) ? std::max<std::size_t>(maxFrames, 1) : 1;
        const std::uint32_t choice = random.below(16);
        const auto& other = memory[random.below(static_cast<std::uint32_t>(memory.size()))];
        if (choice == 0) {
            memory[port] = nullptr;
        } else if (choice < 3 && other != nullptr && other->size() >= size) {
            memory[port] = other;
        } else {
            memory[port] = std::make_shared<Row>(size);
        }
        plugin->connect(handle.get(), static_cast<unsigned long>(port), memory[port] ? memory[port]->data() : nullptr);
    }

    void connectAll(Random& random)
    {
        for (std::size_t port = 0; port < memory.size(); ++port) connect(port, random);
    }

    /// Connects a port that does not exist.
    void connectAbsurdPort(Random& random)
    {
        const unsigned long count = static_cast<unsigned long>(memory.size());
        const unsigned long ports[] = {count, count + 1, 200, 255, 256, 1000, plugin->maxPort - 1, plugin->maxPort};
        Row own(1, kNaN);
        plugin->connect(handle.get(), random.oneOf(ports), random.chance(4) ? nullptr : own.data());
    }

    /// Fills the inputs, and connects audio ports again whose memory has less than the frames of the run.
    void prepare(std::uint32_t frames, Random& random)
    {
        maxFrames = std::max<std::size_t>(maxFrames, frames);
        for (std::size_t port = 0; port < memory.size(); ++port)
            if (isAudio(plugin->ports[port]) && memory[port] != nullptr && memory[port]->size() < frames)
                connect(port, random);
        for (const auto& row : memory)
            if (row != nullptr) std::ranges::fill(*row, kGuard);
        for (std::size_t port = 0; port < memory.size(); ++port) {
            if (memory[port] == nullptr) continue;
            if (plugin->ports[port] == PortKind::AudioIn) fillWithSignal(*memory[port], random);
            if (plugin->ports[port] == PortKind::ControlIn) memory[port]->front() = controlValue(random);
        }
    }

    void run(std::uint32_t frames) { plugin->run(handle.get(), frames); }

    void activate() { plugin->activate(handle.get()); }

    void deactivate()
    {
        if (plugin->deactivate) plugin->deactivate(handle.get());
    }

    /// The contents of the memory of all ports.
    std::vector<Row> contents() const
    {
        std::vector<Row> rows;
        for (const auto& row : memory) rows.push_back(row == nullptr ? Row() : *row);
        return rows;
    }

    /// Checks what a run has written: samples within full scale, and nothing but the frames of the run.
    void check(const std::vector<Row>& before, std::uint32_t frames) const
    {
        for (std::size_t port = 0; port < memory.size(); ++port) {
            if (memory[port] == nullptr) continue;
            const Row& row = *memory[port];
            const auto isOnly = [&](auto holds) {
                for (std::size_t i = 0; i < memory.size(); ++i)
                    if (memory[i] == memory[port] && !holds(plugin->ports[i])) return false;
                return true;
            };
            const auto isKept = [&](std::size_t from) {
                return areEqual(std::span(row).subspan(from), std::span(before[port]).subspan(from));
            };
            require(!isOnly(isInput) || isKept(0), "an input was written");
            if (isOnly([](PortKind kind) { return kind == PortKind::AudioOut; })) {
                require(std::all_of(row.begin(), row.begin() + frames, [](float x) { return std::abs(x) <= 1.0f; }),
                        "a sample is not within full scale");
                require(isKept(frames), "samples after the run were written");
            }
            if (isOnly([](PortKind kind) { return kind == PortKind::ControlOut; }))
                require(std::isfinite(row.front()) && row.front() != kGuard, "a meter was not written");
        }
        const auto& latency = memory[plugin->latencyPort];
        if (latency.use_count() == 1) require(latency->front() == kLatencyFrames, "the latency is wrong");
    }

private:
    const PortPlugin* plugin;
    std::unique_ptr<void, std::function<void(void*)>> handle;
    std::vector<std::shared_ptr<Row>> memory; ///< of every port; null if it is not connected
    std::size_t maxFrames = 64;               ///< that the memory of new audio ports has
};

/// Some instances of random plug-ins, and random calls.
class Session
{
public:
    Session(const std::vector<PortPlugin>& sessionPlugins, std::uint64_t seed, Host sessionHost)
        : plugins(sessionPlugins), random(seed), onlyHere(seed + 1), host(sessionHost)
    {}

    /// Returns the memory of all ports after all runs.
    std::vector<Row> played()
    {
        const std::uint32_t steps = 2 + random.below(14);
        for (std::uint32_t i = 0; i < steps; ++i) {
            if (instances.empty() || (instances.size() < 3 && random.chance(6))) create();
            const std::size_t chosen = random.below(static_cast<std::uint32_t>(instances.size()));
            doSomethingWithoutEffect(instances[chosen]);
            step(chosen);
        }
        return std::move(record);
    }

private:
    void create()
    {
        const auto& plugin = plugins[random.below(static_cast<std::uint32_t>(plugins.size()))];
        if (random.chance(8))
            require(plugin.instantiateAtBadRate(random) == nullptr, "an instance at an unsupported rate");
        call([&] { instances.emplace_back(plugin, plugin.instantiate(random)); });
        Instance& instance = instances.back();
        if (random.chance(4)) return; // the first run can come before any connection
        if (random.chance(8)) call([&] { instance.activate(); });
        instance.connectAll(random);
        if (!random.chance(8)) call([&] { instance.activate(); });
    }

    void step(std::size_t chosen)
    {
        Instance& instance = instances[chosen];
        switch (random.below(12)) {
        case 0:
            instance.connectAll(random);
            return;
        case 1:
            call([&] { instance.activate(); });
            return;
        case 2:
            instance.deactivate();
            return;
        case 3:
            if (random.chance(2)) instances.erase(instances.begin() + static_cast<std::ptrdiff_t>(chosen));
            return;
        default:
            run(instance);
        }
    }

    void run(Instance& instance)
    {
        const std::uint32_t frames = runFrames(random);
        instance.prepare(frames, random);
        const std::vector<Row> before = instance.contents();
        call([&] { instance.run(frames); });
        instance.check(before, frames);
        for (Row& row : instance.contents()) record.push_back(std::move(row));
    }

    void doSomethingWithoutEffect(Instance& instance)
    {
        if (host == Host::Plain) return;
        if (onlyHere.chance(2)) instance.connectAbsurdPort(onlyHere);
        if (!onlyHere.chance(8)) return;
        const auto& plugin = plugins[onlyHere.below(static_cast<std::uint32_t>(plugins.size()))];
        Instance other(plugin, plugin.instantiate(onlyHere));
        other.connectAll(onlyHere);
        other.prepare(100, onlyHere);
        other.run(100);
    }

    /// Calls a function of the plug-in. The hostile host has another floating-point mode or calls on another thread.
    void call(const std::function<void()>& function)
    {
        if (host == Host::Hostile && onlyHere.chance(16)) {
            std::thread(function).join();
        } else if (host == Host::Hostile && onlyHere.chance(2)) {
            static const std::vector<EnvironmentSetting> kSettings = allSettings();
            const auto& setting = kSettings[onlyHere.below(static_cast<std::uint32_t>(kSettings.size()))];
            const CallersEnvironment environment({setting.control, 0});
            function();
            require(currentEnvironment().control == setting.control, "the floating-point mode was changed");
        } else {
            function();
        }
    }

    const std::vector<PortPlugin>& plugins;
    Random random;   ///< decisions of both hosts
    Random onlyHere; ///< decisions of the hostile host
    Host host;
    std::vector<Instance> instances;
    std::vector<Row> record;
};

} // namespace

} // namespace tests

int main(int count, char** arguments)
{
    using namespace tests;
    if (count < 2) {
        std::fputs("usage: port_sessions FILE [SESSIONS [FIRST_SEED]]\n", stderr);
        return 64;
    }
    const std::vector<PortPlugin> plugins = portPluginsOf(arguments[1]);
    runSessions(count, arguments, [&](std::uint64_t seed) {
        auto plain = std::async(std::launch::async, [&] { return Session(plugins, seed, Host::Plain).played(); });
        const std::vector<Row> hostile = Session(plugins, seed, Host::Hostile).played();
        require(std::ranges::equal(plain.get(), hostile, areEqual),
                "two hosts with the same calls get different samples");
    });
    return 0;
}
