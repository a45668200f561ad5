// Interleaved host samples to rows of integers and back, for one instruction set.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/exact_floats.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// Samples in a host's memory. Integers are little-endian.
enum class SampleType : std::uint8_t
{
    Int16,
    Int24,     ///< in 3 bytes
    Int24In32, ///< in the low 3 of 4 bytes; the fourth is ignored on input and sign extension on output
    Int32,
    Float32 ///< full scale 1; integers of 32 bits in rows, rounded half away from zero
};

/// Counts of samples that could not be converted exactly.
struct SampleFaults
{
    std::uint64_t saturated = 0; ///< samples beyond full scale
    std::uint64_t invalid = 0;   ///< NaN, read as silence
};

/// The conversion of frames whose slots are adjacent. Samples need no alignment.
struct Interleaving
{
    /// Reads frames; a slot goes to rows[slot] from offset on.
    void (*load)(const std::byte* first, std::size_t frames, std::int32_t (*rows)[64], std::size_t offset,
                 SampleFaults& faults) noexcept;

    /// Writes frames from such rows.
    void (*store)(const std::int32_t (*rows)[64], std::size_t offset, std::size_t frames, std::byte* first) noexcept;
};

namespace TARN_INSTRUCTION_SET
{

/// The conversion for a type and 1 to 8 slots.
const Interleaving& interleavingOf(SampleType type, std::size_t slots) noexcept;

} // namespace TARN_INSTRUCTION_SET

} // namespace zrk_tarn
