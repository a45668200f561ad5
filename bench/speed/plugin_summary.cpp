// Prints the cost of a call of the LV2 plug-ins.
// SPDX-License-Identifier: MIT
#include "bench/speed/plugin_summary.h"

#include "bench/speed/stream.h"
#include "bench/speed/table.h"
#include "dispatch/instruction_sets.h"
#include "plugins/lv2/plugins.h"
#include "tests/support/ticks.h"

#include <cstdint>
#include <deque>
#include <iterator>
#include <vector>

namespace speed
{

namespace
{

constexpr int kRounds = 12;
constexpr std::size_t kRoundBlocks = 512;
constexpr std::size_t kWarmUpBlocks = 64; ///< at the start of a round, not measured
constexpr std::size_t kPartOfABlock = 37; ///< frames
constexpr Format kFormat{"48 kHz, 32 bit", 48000, 32, false};

/// A plug-in with settings of its controls.
struct Kind
{
    const char* name;
    std::size_t plugin; ///< index in tarn_lv2::kPlugins
    const char* preset; ///< values of the controls
    std::size_t frames; ///< of the measured calls: a block or a part of one
};

constexpr Kind kKinds[] = {{"plain in 3.0, 64 frames", 0, "plain", tests::kBlockFrames},
                           {"film in 3.0, 64 frames", 0, "film", tests::kBlockFrames},
                           {"film in 5.1, 64 frames", 1, "film", tests::kBlockFrames},
                           {"film in 7.1, 64 frames", 2, "film", tests::kBlockFrames},
                           {"dialogue, 64 frames", 3, "voice", tests::kBlockFrames},
                           {"plain in 3.0, 37 frames, no block", 0, "plain", kPartOfABlock},
                           {"film in 3.0, 37 frames, no block", 0, "film", kPartOfABlock},
                           {"film in 5.1, 37 frames, no block", 1, "film", kPartOfABlock},
                           {"dialogue, 37 frames, no block", 3, "voice", kPartOfABlock}};

/// An instance of an LV2 plug-in and the memory of its ports, all connected.
class PluginHost
{
public:
    explicit PluginHost(const Kind& kind)
        : plugin(tarn_lv2::kPlugins[kind.plugin].plugin), instance(plugin, kFormat.rate)
    {
        const auto& settings = tarn_lv2::settingsOf(*zrk_tarn::presetNamed(kind.preset), plugin.layout);
        for (std::size_t index = 0; index < plugin.ports.count; ++index) {
            const tarn_lv2::Port port = plugin.ports.ports[index];
            controls[port] = tarn_lv2::valueOf(port, settings);
            instance.connect(index, port < tarn_lv2::kEnabled ? audio[port] : &controls[port]);
        }
    }

    /// Takes frames of block `number` of the music as input.
    void fill(std::size_t number, std::size_t first, std::size_t frames)
    {
        const std::int32_t* sample =
            tests::music().data() + (number % tests::kMusicBlocks * tests::kBlockFrames + first) * 2;
        for (std::size_t i = 0; i < frames; ++i)
            for (float* const channel : {audio[tarn_lv2::kLeftIn], audio[tarn_lv2::kRightIn]})
                channel[i] = static_cast<float>(*sample++) * 0x1p-31f;
    }

    void run(std::size_t frames)
    {
        instance.run(frames);
        instance.showMeters();
    }

private:
    const tarn_lv2::Plugin& plugin;
    tarn_lv2::Instance instance;
    float audio[tarn_lv2::kEnabled][tests::kBlockFrames]{};
    float controls[tarn_lv2::kPorts]{};
};

/// Calls that are measured in rounds, so that compared ones can alternate. Each round has a new instance at another
/// place in memory, because the place changes the time of every call.
class Measurement
{
public:
    explicit Measurement(const Kind& measuredKind) : kind(measuredKind) {}

    void runRound()
    {
        PluginHost& host = hosts.emplace_back(kind);
        for (std::size_t i = 0; i < kWarmUpBlocks + kRoundBlocks; ++i, ++number) {
            host.fill(number, 0, kind.frames);
            const std::uint64_t spent = tests::ticksOf([&] { host.run(kind.frames); });
            if (i >= kWarmUpBlocks) ticksPerCall.push_back(spent);
            if (const std::size_t rest = tests::kBlockFrames - kind.frames; rest > 0) {
                host.fill(number, kind.frames, rest);
                host.run(rest);
            }
        }
    }

    double median() const { return tests::medianOf(ticksPerCall); }

private:
    const Kind& kind;
    std::deque<PluginHost> hosts; ///< of all rounds, so that no place is used again
    std::size_t number = 0;
    std::vector<std::uint64_t> ticksPerCall;
};

/// The engine alone, in the same rounds.
class EngineMeasurement
{
public:
    void runRound()
    {
        Stream<ZRKTarn>& stream = streams.emplace_back(kFormat);
        for (std::size_t i = 0; i < kWarmUpBlocks + kRoundBlocks; ++i) {
            stream.fill(number++);
            const std::uint64_t spent = tests::ticksOf([&] { stream.process(); });
            if (i >= kWarmUpBlocks) ticksPerBlock.push_back(spent);
        }
    }

    double median() const { return tests::medianOf(ticksPerBlock); }

private:
    std::deque<Stream<ZRKTarn>> streams; ///< of all rounds
    std::size_t number = 0;
    std::vector<std::uint64_t> ticksPerBlock;
};

/// The measurements of an instruction set.
struct Measurements
{
    EngineMeasurement engine;
    std::deque<Measurement> calls;
};

} // namespace

void printPlugins()
{
    const auto sets = zrk_tarn::usableOperations();
    std::deque<Measurements> measurements(sets.size());
    for (std::size_t s = 0; s < sets.size(); ++s) {
        zrk_tarn::chooseOperations(*sets[s]);
        for (const Kind& kind : kKinds) measurements[s].calls.emplace_back(kind);
    }
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t s = 0; s < sets.size(); ++s) {
            zrk_tarn::chooseOperations(*sets[s]);
            measurements[s].engine.runRound();
            for (Measurement& measurement : measurements[s].calls) measurement.runRound();
        }
    }

    std::vector<Column> columns;
    for (std::size_t s = 0; s < sets.size(); ++s) {
        std::vector<double> medians{measurements[s].engine.median()};
        for (const Measurement& measurement : measurements[s].calls) medians.push_back(measurement.median());
        columns.push_back({sets[s]->instructionSet, medians});
    }
    printHead("ticks per call of the LV2 plug-ins", columns);
    printMedians("engine", columns, 0);
    for (std::size_t k = 0; k < std::size(kKinds); ++k) printMedians(kKinds[k].name, columns, k + 1);
    printHead("parts of the engine's time", columns);
    for (std::size_t k = 0; k < std::size(kKinds); ++k)
        if (kKinds[k].frames == tests::kBlockFrames) printRatio({kKinds[k].name, k + 1, 0}, columns);
}

} // namespace speed
