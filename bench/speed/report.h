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
        if (!spent.empty())
            benchmarkState.counters["ticks"] = {tests::medianOf(spent), benchmark::Counter::kAvgThreads};
    }

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
};

} // namespace speed
