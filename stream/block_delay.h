// Delays a slot by the engine's delay.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/block.h"

#include <algorithm>
#include <cstddef>

namespace zrk_tarn
{

/// Delays the blocks of one slot by kEngineDelayBlocks, so that they stay aligned with the engine's output.
class BlockDelay
{
public:
    /// Stores a block and returns the one from kEngineDelayBlocks before; silence at first.
    void delayBlock(const Row& in, Row& out) noexcept
    {
        std::copy_n(rows[next], kBlockFrames, out);
        std::copy_n(in, kBlockFrames, rows[next]);
        next = (next + 1) % kEngineDelayBlocks;
    }

private:
    Row rows[kEngineDelayBlocks]{};
    std::size_t next = 0;
};

} // namespace zrk_tarn
