// A fast clock for measurements.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#if defined __x86_64__
#include <x86intrin.h>
#else
#include <chrono>
#endif

namespace tests
{

/// A counter with a constant rate: the time-stamp counter on x86-64, nanoseconds elsewhere. Earlier instructions are
/// complete and later ones have not started when it is read.
inline std::uint64_t ticks()
{
#if defined __x86_64__
    _mm_lfence();
    const std::uint64_t now = __rdtsc();
    _mm_lfence();
    return now;
#else
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
#endif
}

/// Ticks per second.
double ticksPerSecond();

/// Processor cycles per tick, for processors that multiply 64-bit integers in three cycles, as x86-64 processors of the
/// last ten years do.
double cyclesPerTick();

/// Ticks between two readings without work between them.
std::uint64_t ticksOfReading();

/// The ticks of work, without those of the readings.
template <typename Work>
std::uint64_t ticksOf(Work work)
{
    const std::uint64_t start = ticks();
    work();
    const std::uint64_t spent = ticks() - start;
    return spent > ticksOfReading() ? spent - ticksOfReading() : 0;
}

/// The median of at least one value.
double medianOf(std::vector<std::uint64_t> values);

} // namespace tests
