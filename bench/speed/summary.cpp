// Prints the figures of docs/performance.md.
// SPDX-License-Identifier: MIT
#include "bench/speed/summary.h"

#include "bench/speed/plugin_summary.h"
#include "bench/speed/room_summary.h"
#include "bench/speed/stages.h"
#include "bench/speed/stream.h"
#include "bench/speed/table.h"
#include "dispatch/instruction_sets.h"
#include "lanes/subnormal_speed.h"
#include "tests/reference/reference_engine.h"
#include "tests/support/ticks.h"

#include <chrono>
#include <cstdio>
#include <deque>
#include <iterator>
#include <vector>

namespace speed
{

namespace
{

using zrk_tarn::BlockOperations;

constexpr int kRounds = 12;
constexpr std::size_t kRoundBlocks = 512;
constexpr std::size_t kWarmUpBlocks = 64; ///< at the start of a round, not measured
constexpr std::size_t kSilentBlocks = 60000;

/// A stream that is measured in rounds, so that compared streams can alternate.
template <typename Engine>
class Measurement
{
public:
    Measurement(const Format& format, bool silent) : isSilent(silent), stream(format)
    {
        stream.run(kRoundBlocks);
        if (silent) stream.runSilence(kSilentBlocks);
    }

    void runRound()
    {
        for (std::size_t i = 0; i < kWarmUpBlocks + kRoundBlocks; ++i) {
            if (isSilent) {
                stream.fillWithSilence();
            } else {
                stream.fill(number++);
            }
            const std::uint64_t spent = tests::ticksOf([&] { stream.process(); });
            if (i >= kWarmUpBlocks) ticksPerBlock.push_back(spent);
        }
    }

    double median() const { return tests::medianOf(ticksPerBlock); }

private:
    bool isSilent;
    Stream<Engine> stream;
    std::size_t number = 0;
    std::vector<std::uint64_t> ticksPerBlock;
};

/// Measurements of one engine: all formats in order, then long silence at 48 kHz and 16 bit.
template <typename Engine>
class Measurements
{
public:
    Measurements()
    {
        for (const Format& format : kFormats) measurements.emplace_back(format, false);
        measurements.emplace_back(kPlain, true);
    }

    void runRound()
    {
        for (Measurement<Engine>& measurement : measurements) measurement.runRound();
    }

    std::vector<double> medians() const
    {
        std::vector<double> all;
        for (const Measurement<Engine>& measurement : measurements) all.push_back(measurement.median());
        return all;
    }

private:
    std::deque<Measurement<Engine>> measurements;
};

std::vector<Column> measureBlocks()
{
    const auto sets = zrk_tarn::usableOperations();
    Measurements<reference::Engine> reference;
    std::deque<Measurements<ZRKTarn>> measurements;
    for (const BlockOperations* const operations : sets) {
        zrk_tarn::chooseOperations(*operations);
        measurements.emplace_back();
    }
    for (int round = 0; round < kRounds; ++round) {
        reference.runRound();
        for (std::size_t s = 0; s < sets.size(); ++s) {
            zrk_tarn::chooseOperations(*sets[s]);
            measurements[s].runRound();
        }
    }

    std::vector<Column> columns{{"reference", reference.medians()}};
    for (std::size_t s = 0; s < sets.size(); ++s)
        columns.push_back({sets[s]->instructionSet, measurements[s].medians()});
    return columns;
}

void printTicks(const std::vector<Column>& columns)
{
    printHead("ticks per block", columns);
    constexpr std::size_t kKinds = std::size(kFormats) + 1;
    for (std::size_t kind = 0; kind < kKinds; ++kind)
        printMedians(kind < std::size(kFormats) ? kFormats[kind].name : "48 kHz, 16 bit, long silence", columns, kind);
}

void printRatios(const std::vector<Column>& columns)
{
    constexpr Ratio kRatios[] = {{"long silence / loud", 9, 0},   {"192 kHz / 48 kHz", 3, 0},
                                 {"24 bit / 16 bit", 4, 0},       {"32 bit / 16 bit", 5, 0},
                                 {"remap / plain, 16 bit", 6, 0}, {"remap / plain, 24 bit", 7, 4},
                                 {"remap / plain, 32 bit", 8, 5}};
    printHead("ratios", columns);
    std::printf("%-34s", "reference / this");
    for (const Column& column : columns) std::printf("%12.2f", columns[0].medians[0] / column.medians[0]);
    std::printf("\n");
    for (const Ratio& ratio : kRatios) printRatio(ratio, columns);
}

/// Compares both values of subnormalsAreSlow in music and in long silence.
void printSubnormals()
{
    const bool slowHere = zrk_tarn::subnormalsAreSlow;
    std::vector<Column> columns;
    for (const BlockOperations* const operations : zrk_tarn::usableOperations()) {
        zrk_tarn::chooseOperations(*operations);
        std::deque<Measurement<ZRKTarn>> measurements; // avoided in music and silence, then not avoided
        for (const bool slow : {true, false}) {
            zrk_tarn::subnormalsAreSlow = slow;
            for (const bool silent : {false, true}) measurements.emplace_back(kPlain, silent);
        }
        for (int round = 0; round < kRounds; ++round) {
            for (std::size_t i = 0; i < measurements.size(); ++i) {
                zrk_tarn::subnormalsAreSlow = i < 2;
                measurements[i].runRound();
            }
        }
        columns.push_back({operations->instructionSet, {}});
        for (const auto& measurement : measurements) columns.back().medians.push_back(measurement.median());
    }
    zrk_tarn::subnormalsAreSlow = slowHere;

    printHead(slowHere ? "subnormals, avoided here" : "subnormals, not avoided here", columns);
    constexpr const char* kNames[] = {"avoided, music", "avoided, long silence", "not avoided, music",
                                      "not avoided, long silence"};
    for (std::size_t i = 0; i < std::size(kNames); ++i) printMedians(kNames[i], columns, i);
    for (const Ratio& ratio :
         {Ratio{"not avoided / avoided, music", 2, 0}, Ratio{"not avoided / avoided, silence", 3, 1}})
        printRatio(ratio, columns);
}

/// Speed of one core as a multiple of real time at 48 kHz, with a host buffer that holds all of the music.
template <typename Engine>
double realTimeStreams()
{
    using Clock = std::chrono::steady_clock;
    constexpr int kPasses = 9;
    Stream<Engine> stream(kPlain, tests::kMusicBlocks);
    std::vector<std::uint64_t> passes;
    for (int pass = 0; pass < kPasses; ++pass) {
        for (std::size_t block = 0; block < tests::kMusicBlocks; ++block) stream.fill(block, block);
        const auto start = Clock::now();
        for (std::size_t block = 0; block < tests::kMusicBlocks; ++block) {
            stream.select(block);
            stream.process();
        }
        const auto spent = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
        passes.push_back(static_cast<std::uint64_t>(spent.count()));
    }
    const double audio = static_cast<double>(tests::kMusicBlocks * tests::kBlockFrames) / kPlain.rate;
    return audio / (tests::medianOf(passes) * 1e-9);
}

void printStreams()
{
    std::printf("%-34s%12.0f", "times real time, one stream", realTimeStreams<reference::Engine>());
    for (const BlockOperations* const operations : zrk_tarn::usableOperations()) {
        zrk_tarn::chooseOperations(*operations);
        std::printf("%12.0f", realTimeStreams<ZRKTarn>());
    }
    std::printf("\n");
}

/// Medians of every stage's ticks in the blocks of one engine, and their sum.
template <typename Engine>
std::vector<double> measureStages(StageFlow<Engine> flow, bool silent)
{
    Stream<Engine> stream(kPlain);
    stream.run(kRoundBlocks);
    if (silent) stream.runSilence(kSilentBlocks);
    std::vector<std::vector<std::uint64_t>> perBlock(flow.size());
    for (std::size_t number = 0; number < tests::kMusicBlocks; ++number) {
        if (silent) {
            stream.fillWithSilence();
        } else {
            stream.fill(number);
        }
        for (std::size_t s = 0; s < flow.size(); ++s)
            perBlock[s].push_back(tests::ticksOf([&] { flow[s].run(stream.engine(), kPlain.slots()); }));
    }

    std::vector<double> medians;
    double sum = 0.0;
    for (const std::vector<std::uint64_t>& stage : perBlock) {
        medians.push_back(tests::medianOf(stage));
        sum += medians.back();
    }
    medians.push_back(sum);
    return medians;
}

void printStages(const char* title, bool silent)
{
    std::vector<Column> columns{{"reference", measureStages(referenceStages(), silent)}};
    for (const BlockOperations* const operations : zrk_tarn::usableOperations()) {
        const char* const set = operations->instructionSet;
        columns.push_back({set, measureStages(stagesOf(set), silent)});
    }

    printHead(title, columns);
    const auto stages = referenceStages();
    for (std::size_t s = 0; s <= stages.size(); ++s)
        printMedians(s < stages.size() ? stages[s].name : "sum", columns, s);
}

} // namespace

void printSummary()
{
    std::printf(
        "%.0f million ticks per second, about %.2f cycles per tick; medians without the time of reading the counter\n",
        tests::ticksPerSecond() * 1e-6, tests::cyclesPerTick());
    const std::vector<Column> columns = measureBlocks();
    printTicks(columns);
    printRatios(columns);
    printSubnormals();
    printStreams();
    printStages("ticks of a stage alone", false);
    printStages("the same in long silence", true);
    printRoom();
    printPlugins();
}

} // namespace speed
