#pragma once

#include "stream/block.h"

#include <algorithm>
#include <cstddef>

namespace zrk_tarn
{

/// Delays a slot by as many blocks as the engine's output comes later than its input.
class BlockDelay
{
public:
    /// Takes a block and gives the one of kEngineDelayBlocks before.
    void pass(const Row& in, Row& out) noexcept
    {
        std::copy_n(rows_[next_], kBlockFrames, out);
        std::copy_n(in, kBlockFrames, rows_[next_]);
        next_ = (next_ + 1) % kEngineDelayBlocks;
    }

private:
    Row rows_[kEngineDelayBlocks]{};
    std::size_t next_ = 0;
};

} // namespace zrk_tarn
