#pragma once

#include "bench/speed/ticks.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace speed
{

/// Hands what every iteration took to the benchmark, and at the end the median in ticks: the mean that Google Benchmark
/// prints as time counts what other programs take, too.
class Report
{
public:
    explicit Report(benchmark::State& state) : state_(state) {}

    ~Report()
    {
        if (!spent_.empty()) state_.counters["ticks"] = {medianOf(spent_), benchmark::Counter::kAvgThreads};
    }

    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    void add(std::uint64_t ticks)
    {
        state_.SetIterationTime(static_cast<double>(ticks) / ticksPerSecond());
        spent_.push_back(ticks);
    }

private:
    benchmark::State& state_;
    std::vector<std::uint64_t> spent_;
};

} // namespace speed
