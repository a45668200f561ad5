#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tarn
{

/// A bar on standard error that shows how far work has come. Nothing is shown where that is not a terminal.
class Progress
{
public:
    /// label        what is being done
    /// totalFrames  the whole way, if it is known
    /// sampleRate   Hz
    /// enabled      whether the user wants to see it
    Progress(std::string label, std::optional<std::uint64_t> totalFrames, std::uint32_t sampleRate, bool enabled);

    /// Wipes the bar away.
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Adds frames to the way that is done; draws at most ten times a second.
    void advance(std::uint64_t frames);

    /// Audio per time spent so far: 2 is twice as fast as real time.
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

/// Shows a line on standard error that stays below the notes of this process. Nothing is shown where that is not a
/// terminal.
void showStatus(const std::string& line);

/// Prints a line about the work on standard error, without control characters that file names may have. It takes the
/// place of a bar or a status, which any process may have left there.
void printNote(const std::string& note);

} // namespace tarn
