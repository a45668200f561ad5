// Delays the input slots of a stream by the engine's delay.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/block.h"
#include "stream/stream_types.h"

#include <cstddef>
#include <cstring>

namespace zrk_tarn
{

/// The last blocks of the input slots, so that they stay aligned with the engine's output and with that of the limiter,
/// which is a block later. Silent at first.
class BlockDelay
{
public:
    /// The rows of the newest block, to be filled.
    Row (&input() noexcept)[kMaxSlots] { return blocks[newest]; }

    /// The rows of the block that is as late as the engine's output of the newest one.
    const Row (&delayed() const noexcept)[kMaxSlots] { return blocks[(newest + 2) % kBlocks]; }

    /// The rows of the block before that.
    const Row (&delayedBefore() const noexcept)[kMaxSlots] { return blocks[(newest + 1) % kBlocks]; }

    /// Begins the next block.
    void advance() noexcept { newest = (newest + 1) % kBlocks; }

    void clear() noexcept { std::memset(blocks, 0, sizeof blocks); }

private:
    static constexpr std::size_t kBlocks = kEngineDelayBlocks + 2;

    Row blocks[kBlocks][kMaxSlots]{};
    std::size_t newest = 0;
};

} // namespace zrk_tarn
