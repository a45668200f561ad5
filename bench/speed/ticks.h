#pragma once

#include <cstdint>
#include <vector>

#if defined __x86_64__
#include <x86intrin.h>
#else
#include <chrono>
#endif

namespace speed
{

/// A counter that runs at one rate: the processor's time-stamp counter on x86-64, nanoseconds elsewhere. What stands
/// before it is finished when it is read, and what stands behind it has not begun.
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

/// How many of them a second has, by the clock.
double ticksPerSecond();

/// Cycles of the processor's clock per tick, for processors that multiply 64-bit integers in three cycles, as those of
/// x86-64 of the last ten years do.
double cyclesPerTick();

/// What two readings with nothing between them are apart.
std::uint64_t ticksOfReading();

/// The ticks that work takes, the readings themselves left out.
template <typename Work>
std::uint64_t ticksOf(Work work)
{
    const std::uint64_t start = ticks();
    work();
    const std::uint64_t spent = ticks() - start;
    return spent > ticksOfReading() ? spent - ticksOfReading() : 0;
}

/// The middle value; takes it from the values in any order. There must be one.
double medianOf(std::vector<std::uint64_t> values);

} // namespace speed
