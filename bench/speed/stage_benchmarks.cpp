// Benchmarks of single stages.
// SPDX-License-Identifier: MIT
#include "bench/speed/benchmarks.h"
#include "bench/speed/report.h"
#include "bench/speed/stages.h"
#include "bench/speed/stream.h"
#include "dispatch/instruction_sets.h"
#include "tests/support/ticks.h"

#include <benchmark/benchmark.h>

#include <string>

namespace speed
{

namespace
{

constexpr double kMinSeconds = 0.005; ///< measured time per benchmark

/// Measures one stage. Runs all stages of every block, so that signal and caches are as in a block.
template <typename Engine>
void measureStage(benchmark::State& state, StageFlow<Engine> flow, const Stage<Engine>& measured)
{
    Stream<Engine> stream(kPlain);
    Report report(state);
    std::size_t number = 0;
    for ([[maybe_unused]] const auto iteration : state) {
        stream.fill(number++);
        std::uint64_t spent = 0;
        for (const Stage<Engine>& stage : flow) {
            const std::uint64_t ticks = tests::ticksOf([&] { stage.run(stream.engine(), kPlain.slots()); });
            if (&stage == &measured) spent = ticks;
        }
        report.add(spent);
    }
}

template <typename Engine>
void registerStages(const char* instructionSet, StageFlow<Engine> flow)
{
    for (const Stage<Engine>& stage : flow) {
        const std::string name = std::string(instructionSet) + "/stage " + stage.name;
        benchmark::RegisterBenchmark(name.c_str(),
                                     [flow, &stage](benchmark::State& state) { measureStage(state, flow, stage); })
            ->UseManualTime()
            ->MinTime(kMinSeconds);
    }
}

} // namespace

void registerStageBenchmarks()
{
    registerStages("reference", referenceStages());
    for (const zrk_tarn::BlockOperations* const operations : zrk_tarn::usableOperations())
        registerStages(operations->instructionSet, stagesOf(operations->instructionSet));
}

} // namespace speed
