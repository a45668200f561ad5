// A bounded queue of blocks between two threads.
// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

namespace tarn
{

/// A bounded queue from one thread, which fills blocks, to another one, which reads them. Blocks are used again.
///
/// A thread that has to wait waits until half of the queue is free or filled: waking it costs as much as many samples.
template <typename Block>
class BlockQueue
{
public:
    /// depth  number of blocks, an even number
    explicit BlockQueue(std::size_t depth) : blocks(depth) {}

    /// The block to fill next. Waits while all blocks are filled. Null after cancel.
    Block* blockToFill()
    {
        std::unique_lock lock(mutex);
        if (filled == blocks.size()) changed.wait(lock, [this] { return filled <= half() || cancelled; });
        return cancelled ? nullptr : &blocks[(first + filled) % blocks.size()];
    }

    /// Appends that block.
    void push()
    {
        const std::lock_guard lock(mutex);
        if (++filled == half()) changed.notify_one();
    }

    /// Says that no more blocks follow.
    void end()
    {
        const std::lock_guard lock(mutex);
        ended = true;
        changed.notify_one();
    }

    /// The oldest filled block. Waits while there is none. Null after the last block and after cancel.
    Block* blockToRead()
    {
        std::unique_lock lock(mutex);
        if (filled == 0) changed.wait(lock, [this] { return filled >= half() || ended || cancelled; });
        return cancelled || filled == 0 ? nullptr : &blocks[first];
    }

    /// Frees that block.
    void pop()
    {
        const std::lock_guard lock(mutex);
        first = (first + 1) % blocks.size();
        if (--filled == half()) changed.notify_one();
    }

    /// Ends the waits of both threads and drops the blocks. Either thread can call it.
    void cancel()
    {
        const std::lock_guard lock(mutex);
        cancelled = true;
        changed.notify_one();
    }

private:
    std::size_t half() const noexcept { return blocks.size() / 2; }

    std::mutex mutex;
    std::condition_variable changed; ///< at most one thread waits: no queue is full and empty
    std::vector<Block> blocks;
    std::size_t first = 0;  ///< index of the oldest filled block
    std::size_t filled = 0; ///< number of blocks
    bool ended = false;
    bool cancelled = false;
};

} // namespace tarn
