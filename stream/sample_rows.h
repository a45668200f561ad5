// Converts samples between a host's memory and rows of integers.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/exact_floats.h"
#include "stream/stream_types.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// Counts of samples that could not be converted exactly.
struct SampleFaults
{
    std::uint64_t saturated = 0; ///< samples beyond full scale
    std::uint64_t invalid = 0;   ///< NaN, read as silence
};

/// Converters of one sample format. Samples of a slot are stride bytes apart and need no alignment.
///
/// Integers keep their width. Floats become integers of 32 bits, rounded half away from zero.
struct SampleRows
{
    std::uint32_t bits; ///< width of the integers in a row
    std::size_t bytes;  ///< size of a sample in the host's memory

    /// Reads frames into a row.
    void (*load)(const std::byte* first, std::size_t stride, std::size_t frames, std::int32_t* row,
                 SampleFaults& faults) noexcept;

    /// Writes frames from a row.
    void (*store)(const std::int32_t* row, std::size_t frames, std::byte* first, std::size_t stride) noexcept;
};

/// The converters of a format.
const SampleRows& rowsOf(SampleFormat format) noexcept;

} // namespace zrk_tarn
