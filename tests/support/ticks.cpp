// A fast clock for measurements.
// SPDX-License-Identifier: MIT
#include "tests/support/ticks.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace tests
{

namespace
{

double measureTicksPerSecond()
{
    using Clock = std::chrono::steady_clock;
    const auto clock = Clock::now();
    const std::uint64_t start = ticks();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::uint64_t spent = ticks() - start;
    return static_cast<double>(spent) / std::chrono::duration<double>(Clock::now() - clock).count();
}

std::uint64_t measureTicksOfReading()
{
    std::vector<std::uint64_t> apart;
    for (int i = 0; i < 1001; ++i) {
        const std::uint64_t start = ticks();
        apart.push_back(ticks() - start);
    }
    return static_cast<std::uint64_t>(medianOf(apart));
}

} // namespace

double ticksPerSecond()
{
    static const double measured = measureTicksPerSecond();
    return measured;
}

double cyclesPerTick()
{
    constexpr int kProducts = 100000;
    constexpr double kLatency = 3.0;
    volatile std::uint64_t factor = 0x9e3779b97f4a7c15;
    const std::uint64_t odd = factor;
    std::vector<std::uint64_t> runs;
    for (int run = 0; run < 101; ++run) {
        std::uint64_t product = odd;
        runs.push_back(ticksOf([&] {
            for (int i = 0; i < kProducts; ++i) product *= odd;
            factor = product | 1;
        }));
    }
    return kProducts * kLatency / medianOf(runs);
}

std::uint64_t ticksOfReading()
{
    static const std::uint64_t measured = measureTicksOfReading();
    return measured;
}

double medianOf(std::vector<std::uint64_t> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return static_cast<double>(*middle);
}

} // namespace tests
