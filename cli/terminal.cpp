// A full screen on a terminal, and its keys.
// SPDX-License-Identifier: MIT
#include "cli/terminal.h"

#include "cli/environment.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::string_view kEnter = "\033[?1049h\033[?25l\033[2J"; // second screen, no cursor, erased
constexpr std::string_view kLeave = "\033[0m\033[2J\033[?25h\033[?1049l";
constexpr int kLeaveMilliseconds = 500;

/// The path of a terminal; empty for other descriptors.
std::string nameOfTerminal(int descriptor)
{
    char name[256];
    return ttyname_r(descriptor, name, sizeof name) == 0 ? name : "";
}

/// Terminal settings for single keys without echo. Ctrl-C still sends a signal; Ctrl-Z and Ctrl-S do nothing.
termios keySettings(termios settings)
{
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    settings.c_iflag &= ~static_cast<tcflag_t>(IXON);
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    settings.c_cc[VSUSP] = _POSIX_VDISABLE;
    return settings;
}

} // namespace

bool Terminal::canShowScreens(int descriptor)
{
    const std::string_view type = environmentVariable("TERM");
    if (type.empty() || type == "dumb") return false;
    return isatty(descriptor) != 0 && !nameOfTerminal(descriptor).empty() && tcgetpgrp(descriptor) == getpgrp();
}

Terminal::Terminal(int descriptor)
    : name(nameOfTerminal(descriptor)), terminal(open(name.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    if (terminal.number() < 0 || tcgetattr(terminal.number(), &original) != 0)
        throw Failure(EX_IOERR, name + ": cannot be opened: " + systemError(errno) +
                                    "; check that you may use it, or send the output to a file");
    const termios settings = keySettings(original);
    tcsetattr(terminal.number(), TCSANOW, &settings);
    pending = kEnter;
}

Terminal::~Terminal()
{
    // Pending bytes would be shown on the first screen.
    pollfd wait = {terminal.number(), POLLOUT, 0};
    std::string_view rest = kLeave;
    while (!rest.empty() && poll(&wait, 1, kLeaveMilliseconds) > 0) {
        const ssize_t written = write(terminal.number(), rest.data(), rest.size());
        if (written < 0 && errno != EINTR && errno != EAGAIN) break;
        rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    // Waits for nothing: a terminal that is stuck must not keep the process.
    tcflush(terminal.number(), rest.empty() ? TCIFLUSH : TCIOFLUSH);
    tcsetattr(terminal.number(), TCSANOW, &original);
}

ScreenSize Terminal::size() const noexcept
{
    winsize window = {};
    if (ioctl(terminal.number(), TIOCGWINSZ, &window) != 0 || window.ws_col == 0) return {80, 24};
    return {window.ws_col, window.ws_row};
}

void Terminal::show(const std::vector<std::string>& rows)
{
    sendPending();
    if (!pending.empty()) return;
    if (const ScreenSize now = size(); now != shownSize) {
        shownSize = now;
        shown.clear();
        pending = "\033[0m\033[2J";
    }
    shown.resize(rows.size());
    for (std::size_t row = 0; row < rows.size(); ++row) {
        if (rows[row] == shown[row]) continue;
        pending += "\033[" + std::to_string(row + 1) + ";1H" + rows[row] + "\033[0m";
        shown[row] = rows[row];
    }
    sendPending();
}

std::string Terminal::waitForKeys(std::chrono::milliseconds time)
{
    pollfd waits[2] = {{terminal.number(), POLLIN, 0}, {interruptDescriptor(), POLLIN, 0}};
    if (poll(waits, 2, static_cast<int>(time.count())) <= 0 || waits[0].revents == 0) return {};
    char typed[256];
    const ssize_t got = read(terminal.number(), typed, sizeof typed);
    // A terminal that is gone is always ready.
    if (got == 0 || (waits[0].revents & (POLLHUP | POLLERR)) != 0) throw Interrupted{SIGHUP};
    return got < 0 ? std::string() : keysOf({typed, static_cast<std::size_t>(got)});
}

/// Sends as much as the terminal accepts now.
void Terminal::sendPending() noexcept
{
    while (!pending.empty()) {
        const ssize_t written = write(terminal.number(), pending.data(), pending.size());
        if (written <= 0) return;
        pending.erase(0, static_cast<std::size_t>(written));
    }
}

std::string keysOf(std::string_view typed)
{
    std::string keys;
    while (!typed.empty()) {
        if (typed.front() != '\033') {
            if (static_cast<unsigned char>(typed.front()) >= ' ') keys += typed.front();
            typed.remove_prefix(1);
            continue;
        }
        // ESC [ or ESC O, numbers, and a letter that ends the sequence.
        const bool isSequence = typed.size() > 2 && (typed[1] == '[' || typed[1] == 'O');
        const std::size_t last = isSequence ? typed.find_first_not_of("0123456789;", 2) : std::string_view::npos;
        if (last == std::string_view::npos) return keys;
        const std::size_t arrow = std::string_view("ABCD").find(typed[last]);
        if (arrow != std::string_view::npos) keys += static_cast<char>(Terminal::kUp + arrow);
        typed.remove_prefix(last + 1);
    }
    return keys;
}

} // namespace tarn
