// Writes to a sink on a thread of its own.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/block_queue.h"
#include "cli/work_thread.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tarn
{

/// Passes samples to another sink, whose write runs on a second thread if the process may use a second processor.
///
/// What that write throws, the next write or finish throws. Memory is bounded: write waits while the queue is full.
class ThreadedSink final : public AudioSink
{
public:
    /// slots  per frame
    ThreadedSink(std::unique_ptr<AudioSink> next, std::size_t slots);

    /// Without finish, drops the samples that are not written yet.
    ~ThreadedSink() override;

    ThreadedSink(const ThreadedSink&) = delete;
    ThreadedSink& operator=(const ThreadedSink&) = delete;

    void write(const std::int32_t* samples, std::size_t frames) override;

    /// Completes the other sink on the calling thread.
    void finish() override;

    std::vector<std::string> notes() const override { return sink->notes(); }

private:
    using Block = std::vector<std::int32_t>; ///< interleaved

    void writeBlocks();

    std::unique_ptr<AudioSink> sink;
    std::size_t slots;
    BlockQueue<Block> queue;
    Block* filling = nullptr;           ///< the last block of the queue, not pushed yet
    std::unique_ptr<WorkThread> thread; ///< null: write calls the other sink
};

} // namespace tarn
