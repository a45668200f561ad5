#include "bench/speed/benchmarks.h"
#include "bench/speed/report.h"
#include "bench/speed/stages.h"
#include "bench/speed/stream.h"
#include "bench/speed/ticks.h"
#include "engine/instruction_sets.h"

#include <benchmark/benchmark.h>

#include <string>

namespace speed
{

namespace
{

constexpr double kShortest = 0.005; ///< seconds of measured time per benchmark

/// Runs whole blocks stage by stage, so that every stage meets the signal and the caches that it meets in a block, and
/// measures one of them.
void measureStage(benchmark::State& state, const StageFlow& flow, const Stage& measured)
{
    Stream<ZRKTarn> stream(kPlain);
    Report report(state);
    std::size_t number = 0;
    for ([[maybe_unused]] const auto iteration : state) {
        stream.fill(number++);
        std::uint64_t spent = 0;
        for (const Stage& stage : flow.stages) {
            const std::uint64_t ofThis = ticksOf([&] { stage.run(stream.engine(), kPlain.slots()); });
            if (&stage == &measured) spent = ofThis;
        }
        report.add(spent);
    }
}

} // namespace

void registerStageBenchmarks()
{
    for (const zrk_tarn::BlockOperations* const operations : zrk_tarn::usableOperations()) {
        const StageFlow& flow = stageFlowOf(operations->instructionSet);
        for (const Stage& stage : flow.stages) {
            const std::string name = std::string(flow.instructionSet) + "/stage " + stage.name;
            benchmark::RegisterBenchmark(name.c_str(),
                                         [&flow, &stage](benchmark::State& state) { measureStage(state, flow, stage); })
                ->UseManualTime()
                ->MinTime(kShortest);
        }
    }
}

} // namespace speed
