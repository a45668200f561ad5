// Converts between a host's buffers and rows of integers.
// SPDX-License-Identifier: MIT
#include "stream/sample_rows.h"

#include "dispatch/instruction_sets.h"

#include <algorithm>

namespace zrk_tarn
{

namespace
{

/// A format of a host's samples.
struct Format
{
    SampleType type;
    std::size_t bytes;  ///< of a sample
    std::uint32_t bits; ///< of the integers in rows
};

/// In the order of SampleFormat.
constexpr Format kFormats[] = {{SampleType::Int16, 2, 16},
                               {SampleType::Int24, 3, 24},
                               {SampleType::Int24In32, 4, 24},
                               {SampleType::Int32, 4, 32},
                               {SampleType::Float32, 4, 32}};

const Format& find(SampleFormat format) noexcept
{
    return kFormats[static_cast<std::size_t>(format)];
}

} // namespace

SampleRows::SampleRows(SampleFormat format, std::size_t slotCount) noexcept
    : slots(slotCount),
      frameBytes(slotCount * find(format).bytes),
      all(chosenOperations().interleavingOf(find(format).type, slotCount)),
      one(chosenOperations().interleavingOf(find(format).type, 1))
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
    return find(format).bits;
}

} // namespace zrk_tarn
