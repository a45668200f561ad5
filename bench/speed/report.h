// Reports measured ticks to Google Benchmark.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/ticks.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace speed
{

/// Reports the time of every iteration, and at the end the median in ticks. The mean that Google Benchmark prints
/// includes interruptions by other programs.
class Report
{
public:
    explicit Report(benchmark::State& state) : benchmarkState(state) {}

    ~Report()
    {
        if (spent.empty()) return;
        const double ticks = tests::medianOf(spent);
        benchmarkState.counters["ticks"] = {ticks, benchmark::Counter::kAvgThreads};
        if (blocksPerSecond > 0.0)
            benchmarkState.counters["streams"] = tests::ticksPerSecond() / (blocksPerSecond * ticks);
    }

    /// Reports streams per core too: each has this many blocks per second.
    void addStreams(double streamBlocksPerSecond) { blocksPerSecond = streamBlocksPerSecond; }

    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    void add(std::uint64_t ticks)
    {
        benchmarkState.SetIterationTime(static_cast<double>(ticks) / tests::ticksPerSecond());
        spent.push_back(ticks);
    }

private:
    benchmark::State& benchmarkState;
    std::vector<std::uint64_t> spent;
    double blocksPerSecond = 0.0;
};

} // namespace speed
