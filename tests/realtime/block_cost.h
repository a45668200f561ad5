#pragma once

#include "tests/realtime/hostile_signal.h"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace tests
{

/// The middle one of what blocks of music in a format cost, by a measure that processes its block.
std::uint64_t medianInMusic(const StreamFormat& format, std::size_t blocks,
                            const std::function<std::uint64_t(zrk_tarn_processor_t&, HostBlock&)>& measure);

/// Instructions of the last block of a signal, with the instruction set that engines work with.
std::uint64_t instructionsOfLastBlock(const HostileSignal& signal);

/// Their median over blocks of music of the same format.
std::uint64_t instructionsInMusic(const StreamFormat& format);

} // namespace tests
