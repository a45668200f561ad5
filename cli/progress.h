// Progress bar, status line and notes on standard error.
// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tarn
{

/// A progress bar on standard error. Shows nothing if that is not a terminal.
class Progress
{
public:
    /// label        name of the work
    /// totalFrames  length of the work, if known
    /// sampleRate   Hz
    /// enabled      whether the user wants the bar
    Progress(std::string label, std::optional<std::uint64_t> totalFrames, std::uint32_t sampleRate, bool enabled);

    /// Erases the bar.
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Adds completed frames. Draws at most ten times a second.
    void advance(std::uint64_t frames);

    /// Speed so far: 2 is twice real time.
    double speed() const;

private:
    using Clock = std::chrono::steady_clock;

    void draw();

    std::string label;
    std::optional<std::uint64_t> total;
    std::uint32_t rate;
    bool shown;
    bool drawn = false;
    std::uint64_t done = 0;
    Clock::time_point start = Clock::now();
    Clock::time_point lastDrawn = start;
};

/// Shows a line on standard error that stays below the notes of this process. Shows nothing if that is not a terminal.
void showStatus(const std::string& line);

/// Prints a line on standard error, without control characters from file names. Erases the bar or status line of any
/// process first.
void printNote(const std::string& note);

} // namespace tarn
