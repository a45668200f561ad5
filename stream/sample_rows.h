#pragma once

#include "stream/stream_types.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// Samples of a host that could not be carried over as they were.
struct SampleFaults
{
    std::uint64_t saturated = 0; ///< floats beyond full scale, taken as full scale
    std::uint64_t invalid = 0;   ///< NaN, taken as silence
};

/// Samples of one slot as integers of the format's width, from and to a host's memory. Rows are spaced by stride bytes;
/// nothing needs to be aligned.
///
/// Floats are carried as integers of 32 bits, rounded half away from zero.
struct SampleRows
{
    std::uint32_t bits; ///< width of the integers
    std::size_t bytes;  ///< size of a sample in the host's memory
    void (*load)(const std::byte* first, std::size_t stride, std::size_t frames, std::int32_t* row,
                 SampleFaults& faults) noexcept;
    void (*store)(const std::int32_t* row, std::size_t frames, std::byte* first, std::size_t stride) noexcept;
};

/// How a format's rows are carried.
const SampleRows& rowsOf(SampleFormat format) noexcept;

} // namespace zrk_tarn
