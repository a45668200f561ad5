// The cost of a block, in instructions or ticks.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/realtime/hostile_signal.h"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace tests
{

/// Instructions of the worst block, relative to music.
#if defined TARN_GENERIC
constexpr double kWorstBlockBound = 2.0; // portable code avoids subnormal numbers one by one
#else
constexpr double kWorstBlockBound = 1.6;
#endif

/// The median cost of blocks of music in a format. The measure processes a block and returns its cost.
std::uint64_t medianInMusic(const StreamFormat& format, std::size_t blocks,
                            const std::function<std::uint64_t(zrk_tarn_processor_t&, HostBlock&)>& measure);

/// Instructions of the last block of a signal, with the chosen instruction set.
std::uint64_t instructionsOfLastBlock(const HostileSignal& signal);

/// Median of the instructions of blocks of music in a format.
std::uint64_t instructionsInMusic(const StreamFormat& format);

} // namespace tests
