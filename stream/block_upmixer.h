// Runs blocks through the engine.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/block.h"
#include "stream/sample_rows.h"
#include "stream/stream_types.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// A processor that takes and returns blocks of one row per channel. Allocates in its constructor only.
class BlockUpmixer
{
public:
    /// Throws std::bad_alloc.
    ///
    /// bits  width of the samples: 16, 24 or 32
    BlockUpmixer(const StreamConfiguration& configuration, std::uint32_t bits);

    /// Upmixes one block.
    ///
    /// outputs  front left, front right and centre; or the four columns of the remap matrix
    void process(const Row& left, const Row& right, Row (&outputs)[4]) noexcept;

    /// Changes the remap matrix from the next block on.
    void setRemap(const RemapGains& gains) noexcept;

    /// Changes the steering mode from the next block on. The signal in the engine is kept.
    void setMode(SteeringMode mode) noexcept;

    /// Clears the signal.
    void restart(SteeringMode mode) noexcept;

    const ZRKTarn& engine() const noexcept { return *processor.engine; }

private:
    void processRemapped(const Row& left, const Row& right, Row (&outputs)[4]) noexcept;
    void callProcessor(std::uint32_t frames);

    zrk_tarn_processor_t processor;
    audio_channel_assignment_t assignment;
    std::uint32_t sampleRateHz;
    std::uint32_t slots; ///< of a buffer: left, right, centre; with a remap matrix kMaxSlots
    std::uint32_t bits;
    const Interleaving& packed;
    std::byte buffer[kBlockFrames * kMaxSlots * sizeof(std::int32_t)]{}; ///< interleaved
    Row rows[kMaxSlots]{}; ///< scratch of processRemapped, which keeps it off the stack
};

} // namespace zrk_tarn
