// Plays a source through meters, a file in real time.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"
#include "cli/metered_stream.h"

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <thread>

namespace tarn
{

/// Sends a source to its meters.
class Player
{
public:
    /// fileSpeed  1 is real time; none: as fast as the source delivers
    Player(AudioSource& audioSource, MeteredStream& meteredStream, std::optional<double> fileSpeed)
        : source(audioSource), stream(meteredStream), rate(source.format().sampleRate), speed(fileSpeed)
    {}

    /// Plays to the end. Calls afterSecond after every second of the source, and at its end inside a second. Throws
    /// Interrupted, and what the source throws.
    void play(const std::function<void()>& afterSecond = [] {});

    /// Stops playing, or goes on. Can be called on every thread.
    void togglePause() noexcept { paused = !paused; }
    bool isPaused() const noexcept { return paused; }

private:
    void waitWhilePaused() const;

    AudioSource& source;
    MeteredStream& stream;
    std::uint32_t rate;
    std::optional<double> speed;
    std::uint64_t frames = 0;
    std::atomic<bool> paused = false;
};

/// Runs a player on a thread of its own. The destructor stops it.
class Playback
{
public:
    explicit Playback(Player& player);
    ~Playback();

    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    bool hasEnded() const noexcept { return ended; }

    /// After the end: rethrows what ended the player, if it did not reach the end of the source.
    void rethrowProblem() const;

private:
    std::atomic<bool> ended = false;
    std::exception_ptr problem; ///< valid after the end
    std::thread thread;
};

} // namespace tarn
