// Prints the progress bar, the status line and notes.
// SPDX-License-Identifier: MIT
#include "cli/progress.h"

#include "cli/text.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::chrono::milliseconds kRedrawInterval(100);
constexpr std::size_t kMaxBarWidth = 24;
constexpr const char* kEraseLine = "\r\033[K";

std::string status; // the line of showStatus

/// Columns of the terminal that shows standard error.
std::size_t columnsOfTerminal()
{
    winsize window = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0 ? window.ws_col : 80;
}

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
    const bool hasLength = total && *total > 0;
    const double share = hasLength ? std::min(1.0, static_cast<double>(done) / static_cast<double>(*total)) : 0.0;
    std::string text = durationText(done, rate);
    if (hasLength) text = formatted("%3.0f %%  ", 100.0 * share) + text + " / " + durationText(*total, rate);
    text += formatted("  %.0f x real time", speed());

    // A line as wide as the terminal would continue on the next row, and could not be erased.
    const std::size_t columns = columnsOfTerminal() - 1;
    const std::size_t used = label.size() + text.size() + 4; // with "[", "] " and a blank
    if (hasLength && used < columns) {
        std::string bar(std::min(kMaxBarWidth, columns - used), '-');
        std::fill_n(bar.begin(), static_cast<std::size_t>(share * static_cast<double>(bar.size())), '#');
        text = "[" + bar + "] " + text;
    }
    std::fputs(("\r" + (label + " " + text).substr(0, columns) + "\033[K").c_str(), stderr);
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
