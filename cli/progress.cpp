// Prints the progress bar, the status line and notes.
// SPDX-License-Identifier: MIT
#include "cli/progress.h"

#include "cli/text.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::chrono::milliseconds kRedrawInterval(100);
constexpr std::size_t kBarWidth = 24;
constexpr const char* kEraseLine = "\r\033[K";

std::string status; // the line of showStatus

} // namespace

Progress::Progress(std::string workLabel, std::optional<std::uint64_t> totalFrames, std::uint32_t sampleRate,
                   bool enabled)
    : label(std::move(workLabel)), total(totalFrames), rate(sampleRate), shown(enabled && isatty(STDERR_FILENO) != 0)
{}

Progress::~Progress()
{
    if (drawn) std::fputs(kEraseLine, stderr);
}

void Progress::advance(std::uint64_t frames)
{
    done += frames;
    if (!shown) return;
    const Clock::time_point now = Clock::now();
    if (now - lastDrawn < kRedrawInterval) return;
    lastDrawn = now;
    draw();
}

double Progress::speed() const
{
    const std::chrono::duration<double> spent = Clock::now() - start;
    return static_cast<double>(done) / rate / std::max(spent.count(), 1e-9);
}

void Progress::draw()
{
    drawn = true;
    std::string line = "\r";
    line += label + " ";
    if (total && *total > 0) {
        const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(*total));
        std::string bar(kBarWidth, '-');
        std::fill_n(bar.begin(), static_cast<std::size_t>(share * static_cast<double>(kBarWidth)), '#');
        line.append(1, '[').append(bar).append(formatted("] %3.0f %%  ", 100.0 * share));
    }
    line += durationText(done, rate);
    if (total && *total > 0) line += " / " + durationText(*total, rate);
    line += formatted("  %.0f x real time\033[K", speed());
    std::fputs(line.c_str(), stderr);
}

void showStatus(const std::string& line)
{
    if (isatty(STDERR_FILENO) == 0) return;
    status = kEraseLine + line;
    std::fputs(status.c_str(), stderr);
}

void printNote(const std::string& note)
{
    // One call, so that notes of several processes do not mix.
    const char* const erase = isatty(STDERR_FILENO) != 0 ? kEraseLine : "";
    std::fputs((erase + ("tarn: " + printable(note)) + "\n" + status).c_str(), stderr);
}

} // namespace tarn
