// Where the samples of each slot lie in a host's memory.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <cstddef>

namespace zrk_tarn
{

/// The samples of one slot: the first one, or null, and the distance from each to the next in bytes.
struct HostRow
{
    std::byte* first;
    std::size_t stride;
};

/// One row per slot.
struct HostRows
{
    HostRow row[kMaxSlots]{};
};

/// The rows of an interleaved buffer. All are null if the buffer is null.
inline HostRows interleavedRows(void* buffer, std::size_t slots, std::size_t sampleBytes) noexcept
{
    HostRows rows;
    auto* const first = static_cast<std::byte*>(buffer);
    for (std::size_t slot = 0; slot < slots; ++slot)
        rows.row[slot] = {.first = first == nullptr ? nullptr : first + slot * sampleBytes,
                          .stride = slots * sampleBytes};
    return rows;
}

/// The rows of planar buffers, one per slot.
inline HostRows planarRows(float* const* buffers, std::size_t slots) noexcept
{
    HostRows rows;
    for (std::size_t slot = 0; slot < slots; ++slot)
        rows.row[slot] = {.first = reinterpret_cast<std::byte*>(buffers[slot]), .stride = sizeof(float)};
    return rows;
}

} // namespace zrk_tarn
