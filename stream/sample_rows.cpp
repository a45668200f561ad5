// Converts between a host's buffers and rows of integers.
// SPDX-License-Identifier: MIT
#include "stream/sample_rows.h"

#include "dispatch/instruction_sets.h"

#include <algorithm>

namespace zrk_tarn
{

namespace
{

/// Size of a sample in a host's memory.
std::size_t bytesOf(SampleFormat format) noexcept
{
    switch (format) {
    case SampleFormat::S16:
        return 2;
    case SampleFormat::S24:
        return 3;
    default:
        return 4;
    }
}

} // namespace

SampleRows::SampleRows(SampleFormat format, std::size_t slotCount) noexcept
    : slots(slotCount),
      frameBytes(slotCount * bytesOf(format)),
      all(chosenOperations().interleavingOf(format, slotCount)),
      one(chosenOperations().interleavingOf(format, 1))
{}

void SampleRows::load(const HostBuffers& from, std::size_t place, std::size_t frames, Row* rows, std::size_t offset,
                      SampleFaults& faults) const noexcept
{
    if (from.interleaved != nullptr) {
        all.load(from.interleaved + place * frameBytes, frames, rows, offset, faults);
        return;
    }
    for (std::size_t slot = 0; slot < slots; ++slot) {
        const float* const buffer = from.planar != nullptr ? from.planar[slot] : nullptr;
        if (buffer != nullptr) {
            one.load(reinterpret_cast<const std::byte*>(buffer + place), frames, rows + slot, offset, faults);
        } else {
            std::fill_n(rows[slot] + offset, frames, 0);
        }
    }
}

void SampleRows::store(const Row* rows, std::size_t offset, std::size_t frames, const HostBuffers& to,
                       std::size_t place) const noexcept
{
    if (to.interleaved != nullptr) {
        all.store(rows, offset, frames, to.interleaved + place * frameBytes);
        return;
    }
    for (std::size_t slot = 0; to.planar != nullptr && slot < slots; ++slot)
        if (to.planar[slot] != nullptr)
            one.store(rows + slot, offset, frames, reinterpret_cast<std::byte*>(to.planar[slot] + place));
}

std::uint32_t bitsOf(SampleFormat format) noexcept
{
    switch (format) {
    case SampleFormat::S16:
        return 16;
    case SampleFormat::S24:
    case SampleFormat::S24In32:
        return 24;
    default:
        return 32;
    }
}

} // namespace zrk_tarn
