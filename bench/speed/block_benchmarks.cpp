// Benchmarks of whole blocks.
// SPDX-License-Identifier: MIT
#include "bench/speed/benchmarks.h"
#include "bench/speed/report.h"
#include "bench/speed/stream.h"
#include "dispatch/instruction_sets.h"
#include "tests/reference/reference_engine.h"
#include "tests/support/ticks.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <string>

namespace speed
{

namespace
{

using zrk_tarn::BlockOperations;

constexpr std::size_t kWarmUpBlocks = 200;
constexpr std::size_t kSilentBlocks = 60000;
constexpr std::int64_t kPeriodBlocks = 16; ///< 1024 frames, a usual period of audio servers
constexpr double kMinSeconds = 0.05;       ///< measured time per benchmark

void measureMusic(benchmark::State& state, auto& stream)
{
    Report report(state);
    std::size_t number = 0;
    for ([[maybe_unused]] const auto iteration : state) {
        stream.fill(number++);
        report.add(tests::ticksOf([&] { stream.process(); }));
    }
}

void blocksOfReference(benchmark::State& state, const Format& format)
{
    Stream<reference::Engine> stream(format);
    stream.run(kWarmUpBlocks);
    measureMusic(state, stream);
}

void blocks(benchmark::State& state, const BlockOperations& operations, const Format& format)
{
    zrk_tarn::chooseOperations(operations);
    Stream<ZRKTarn> stream(format);
    stream.run(kWarmUpBlocks);
    measureMusic(state, stream);
}

void silentBlocks(benchmark::State& state, const BlockOperations& operations)
{
    zrk_tarn::chooseOperations(operations);
    Stream<ZRKTarn> stream(kPlain);
    stream.run(kWarmUpBlocks);
    stream.runSilence(kSilentBlocks);
    Report report(state);
    for ([[maybe_unused]] const auto iteration : state) {
        stream.fillWithSilence();
        report.add(tests::ticksOf([&] { stream.process(); }));
    }
}

/// Processes a buffer of every engine in turn, so that many engines evict each other from the caches.
void alternatingEngines(benchmark::State& state, const BlockOperations& operations)
{
    zrk_tarn::chooseOperations(operations);
    const auto bufferBlocks = static_cast<std::size_t>(std::max(state.range(1), std::int64_t{1}));
    std::deque<Stream<ZRKTarn>> streams;
    for (std::int64_t i = 0; i < state.range(0); ++i) streams.emplace_back(kPlain, bufferBlocks).run(20);
    Report report(state);
    report.addStreams(static_cast<double>(kPlain.rate) / tests::kBlockFrames);
    std::size_t turn = 0;
    for ([[maybe_unused]] const auto iteration : state) {
        Stream<ZRKTarn>& stream = streams[turn++ % streams.size()];
        for (std::size_t block = 0; block < bufferBlocks; ++block) stream.fill(turn + block, block);
        const std::uint64_t spent = tests::ticksOf([&] {
            for (std::size_t block = 0; block < bufferBlocks; ++block) {
                stream.select(block);
                stream.process();
            }
        });
        report.add(spent / bufferBlocks);
    }
}

/// One engine per thread. The first thread chooses the instruction set; then all start together.
void threads(benchmark::State& state, const BlockOperations& operations)
{
    if (state.thread_index() == 0) zrk_tarn::chooseOperations(operations);
    Stream<ZRKTarn> stream(kPlain);
    measureMusic(state, stream);
}

benchmark::internal::Benchmark* add(const std::string& name, auto work)
{
    return benchmark::RegisterBenchmark(name.c_str(), work)->UseManualTime()->MinTime(kMinSeconds);
}

} // namespace

void registerBlockBenchmarks()
{
    for (const Format& format : kFormats)
        add(std::string("reference/") + format.name,
            [&format](benchmark::State& state) { blocksOfReference(state, format); });

    for (const BlockOperations* const operations : zrk_tarn::usableOperations()) {
        const std::string set = std::string(operations->instructionSet) + "/";
        for (const Format& format : kFormats)
            add(set + format.name,
                [&format, operations](benchmark::State& state) { blocks(state, *operations, format); });
        add(set + "long silence", [operations](benchmark::State& state) { silentBlocks(state, *operations); });
        add(set + "alternating engines",
            [operations](benchmark::State& state) { alternatingEngines(state, *operations); })
            ->ArgNames({"engines", "blocks"})
            ->ArgsProduct({{1, 10, 100, 1000}, {1, kPeriodBlocks}});
        add(set + "engine per thread", [operations](benchmark::State& state) {
            threads(state, *operations);
        })->Threads(2);
    }
}

} // namespace speed
