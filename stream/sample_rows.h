// Converts between a host's buffers and rows of integers.
// SPDX-License-Identifier: MIT
#pragma once

#include "io/interleave.h"
#include "room/block.h"
#include "stream/stream_types.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// The samples of a host: an interleaved buffer, or a buffer of floats for every slot. Input buffers are only read.
struct HostBuffers
{
    std::byte* interleaved = nullptr;
    float* const* planar = nullptr;
};

/// The conversion of a stream's buffers. Integers keep their width; floats become integers of 32 bits.
class SampleRows
{
public:
    SampleRows(SampleFormat format, std::size_t slots) noexcept;

    /// Reads frames from a place of the buffers into rows, from offset on. A null buffer is silence.
    void load(const HostBuffers& from, std::size_t place, std::size_t frames, Row* rows, std::size_t offset,
              SampleFaults& faults) const noexcept;

    /// Writes frames of rows, from offset on, to a place of the buffers. Nothing is written to a null buffer.
    void store(const Row* rows, std::size_t offset, std::size_t frames, const HostBuffers& to,
               std::size_t place) const noexcept;

private:
    std::size_t slots;
    std::size_t frameBytes;
    const Interleaving& all; ///< of all slots
    const Interleaving& one; ///< of a single slot
};

/// Width of the integers in the rows of a format.
std::uint32_t bitsOf(SampleFormat format) noexcept;

} // namespace zrk_tarn
