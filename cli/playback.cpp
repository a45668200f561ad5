// Plays a source through meters, a file in real time.
// SPDX-License-Identifier: MIT
#include "cli/playback.h"

#include "cli/interrupt.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

#include <poll.h>

namespace tarn
{

namespace
{

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadFrames = 4096;
constexpr std::uint32_t kPartsPerSecond = 100; ///< of a file, which is read in real time

/// Waits until a point in time. Throws Interrupted.
void waitUntil(Clock::time_point time)
{
    while (true) {
        throwIfInterrupted();
        const auto left = std::chrono::ceil<milliseconds>(time - Clock::now());
        if (left.count() <= 0) return;
        pollfd wait = {interruptDescriptor(), POLLIN, 0};
        poll(&wait, 1, static_cast<int>(std::min(left, milliseconds(1000)).count()));
    }
}

} // namespace

void Player::play(const std::function<void()>& afterSecond)
{
    std::vector<std::int32_t> stereo(2 * kReadFrames);
    const std::size_t part = speed ? std::clamp<std::size_t>(rate / kPartsPerSecond, 1, kReadFrames) : kReadFrames;
    const Clock::time_point start = Clock::now();
    while (true) {
        throwIfInterrupted();
        const std::uint64_t untilSecond = rate - frames % rate;
        const std::size_t got = source.read(stereo.data(), std::min<std::uint64_t>(part, untilSecond));
        if (got == 0) break;
        stream.push(stereo.data(), got, source.clippedSamples());
        frames += got;
        if (frames % rate == 0) afterSecond();
        if (!speed) continue;
        const std::chrono::duration<double> position(static_cast<double>(frames) / rate / *speed);
        waitUntil(start + std::chrono::duration_cast<Clock::duration>(position));
    }
    stream.finish();
    if (frames % rate != 0) afterSecond();
}

Playback::Playback(Player& player)
    : thread([this, &player] {
          try {
              player.play();
          } catch (...) {
              problem = std::current_exception();
          }
          ended = true;
      })
{}

Playback::~Playback()
{
    if (!ended) requestStop();
    thread.join();
}

void Playback::rethrowProblem() const
{
    if (problem) std::rethrow_exception(problem);
}

} // namespace tarn
