// Reads a source on a thread of its own.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/block_queue.h"
#include "cli/work_thread.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace tarn
{

/// Reads stereo block by block, on a second thread if the process may use a second processor. Memory is bounded: that
/// thread waits while the queue is full.
///
/// Nothing else may use the source until the last block was read or the object is destroyed.
template <typename Sample>
class ReadAhead
{
public:
    /// readFrames  reads up to a number of frames of interleaved stereo; returns 0 at the end
    /// onThread    whether a second thread reads; then no read may wait for the sender of a live stream
    ReadAhead(std::function<std::size_t(Sample* stereo, std::size_t frames)> readFrames, bool onThread)
        : read(std::move(readFrames)), queue(kBlocks), thread(onThread ? startThread([this] { readAll(); }) : nullptr)
    {}

    ~ReadAhead() { queue.cancel(); }

    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    /// The next frames, interleaved, valid until the next call; empty at the end, then do not call it again. Throws
    /// what the source throws.
    std::span<Sample> next()
    {
        if (!thread) {
            own.stereo.resize(2 * kBlockFrames);
            return std::span(own.stereo).first(2 * read(own.stereo.data(), kBlockFrames));
        }
        if (isReading) queue.pop();
        Block* const block = queue.blockToRead();
        isReading = block != nullptr;
        if (isReading) return std::span(block->stereo).first(2 * block->frames);
        thread->join();
        return {};
    }

private:
    static constexpr std::size_t kBlockFrames = 4096;
    static constexpr std::size_t kBlocks = 8;

    struct Block
    {
        std::vector<Sample> stereo;
        std::size_t frames = 0;
    };

    /// Fills a block. Returns whether more frames can follow.
    bool fill(Block& block) const
    {
        block.stereo.resize(2 * kBlockFrames);
        block.frames = 0;
        while (block.frames < kBlockFrames) {
            const std::size_t frames = read(block.stereo.data() + 2 * block.frames, kBlockFrames - block.frames);
            if (frames == 0) return false;
            block.frames += frames;
        }
        return true;
    }

    /// Runs on the second thread.
    void readAll()
    {
        Block* block = nullptr;
        try {
            while ((block = queue.blockToFill()) != nullptr && fill(*block)) queue.push();
        } catch (...) {
            end(block);
            throw;
        }
        end(block);
    }

    /// Appends the last block.
    void end(const Block* last)
    {
        if (last != nullptr && last->frames > 0) queue.push();
        queue.end();
    }

    std::function<std::size_t(Sample*, std::size_t)> read;
    BlockQueue<Block> queue;
    Block own;                          ///< without a thread
    bool isReading = false;             ///< the oldest block of the queue
    std::unique_ptr<WorkThread> thread; ///< null: next reads
};

} // namespace tarn
