// Collects samples in blocks for the second thread.
// SPDX-License-Identifier: MIT
#include "cli/threaded_sink.h"

#include <algorithm>
#include <utility>

namespace tarn
{

namespace
{

constexpr std::size_t kBlockFrames = 4096;
constexpr std::size_t kBlocks = 8;

} // namespace

ThreadedSink::ThreadedSink(std::unique_ptr<AudioSink> next, std::size_t slotsPerFrame)
    : sink(std::move(next)), slots(slotsPerFrame), queue(kBlocks), thread(startThread([this] { writeBlocks(); }))
{}

ThreadedSink::~ThreadedSink()
{
    queue.cancel();
}

/// Runs on the second thread.
void ThreadedSink::writeBlocks()
{
    try {
        while (const Block* const block = queue.blockToRead()) {
            sink->write(block->data(), block->size() / slots);
            queue.pop();
        }
    } catch (...) {
        queue.cancel();
        throw;
    }
}

void ThreadedSink::write(const std::int32_t* samples, std::size_t frames)
{
    if (!thread) return sink->write(samples, frames);
    const std::int32_t* const end = samples + frames * slots;
    while (samples != end) {
        if (filling == nullptr) {
            filling = queue.blockToFill();
            if (filling == nullptr) return thread->join();
            filling->clear();
            filling->reserve(kBlockFrames * slots);
        }
        const auto count = std::min<std::ptrdiff_t>(
            end - samples, static_cast<std::ptrdiff_t>(kBlockFrames * slots - filling->size()));
        filling->insert(filling->end(), samples, samples + count);
        samples += count;
        if (filling->size() < kBlockFrames * slots) continue;
        queue.push();
        filling = nullptr;
    }
}

void ThreadedSink::finish()
{
    if (thread) {
        if (filling != nullptr) queue.push();
        queue.end();
        thread->join();
    }
    sink->finish();
}

} // namespace tarn
