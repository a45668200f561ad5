// Catches signals and ends waits for input and output.
// SPDX-License-Identifier: MIT
#include "cli/interrupt.h"

#include "cli/error_advice.h"
#include "cli/failure.h"
#include "cli/text.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace tarn
{

namespace
{

// Set by the handler, read by the worker threads.
std::atomic<int> arrived = 0;
static_assert(std::atomic<int>::is_always_lock_free);

// The handler writes a byte here, so that a signal just before a wait ends the wait too.
int wakePipe[2] = {-1, -1};

extern "C" void recordSignal(int signalNumber)
{
    const int savedErrno = errno;
    // The first signal stays: it may have ended the reader of a pipe, which causes SIGPIPE here.
    int before = 0;
    if (!arrived.compare_exchange_strong(before, signalNumber) && before == kStopRequested) arrived = signalNumber;
    const char byte = 0;
    // A full pipe wakes the waiter too.
    [[maybe_unused]] const ssize_t written = write(wakePipe[1], &byte, 1);
    errno = savedErrno;
}

/// The signals that end a process by default and do not mean that it crashed. The real-time signals follow them.
/// Not every processor has the last two.
constexpr std::array kSignals{
    SIGHUP,    SIGINT, SIGQUIT, SIGUSR1, SIGUSR2, SIGPIPE, SIGALRM, SIGTERM, SIGXCPU, SIGPROF, SIGVTALRM, SIGIO,
#ifdef SIGPWR
    SIGPWR,
#endif
#ifdef SIGSTKFLT
    SIGSTKFLT,
#endif
};

/// Makes the handler record a signal, unless the parent ignores it or another handler has it, such as a profiler's.
void record(int signalNumber)
{
    struct sigaction action = {};
    if (sigaction(signalNumber, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) return;
    action = {};
    action.sa_handler = recordSignal;
    sigaction(signalNumber, &action, nullptr);
}

} // namespace

void catchInterrupts()
{
    for (const int end : wakePipe)
        if (end >= 0) close(end);
    if (pipe2(wakePipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        const int error = errno;
        throw Failure(EX_SOFTWARE,
                      "cannot create a pipe: " + systemError(error) + "; " + adviceFor(error, "end some programs"));
    }

    for (const int signalNumber : kSignals) record(signalNumber);
    for (int signalNumber = SIGRTMIN; signalNumber <= SIGRTMAX; ++signalNumber) record(signalNumber);
    std::signal(SIGXFSZ, SIG_IGN);
}

void requestStop() noexcept
{
    // A signal that has arrived stays: the process ends by it.
    int none = 0;
    arrived.compare_exchange_strong(none, kStopRequested);
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(wakePipe[1], &byte, 1);
}

int arrivedSignal() noexcept
{
    return arrived;
}

int interruptDescriptor() noexcept
{
    return wakePipe[0];
}

void throwIfInterrupted()
{
    if (const int signalNumber = arrived; signalNumber != 0) throw Interrupted{signalNumber};
}

void waitUntilReady(int descriptor, short events)
{
    pollfd waits[2] = {{descriptor, events, 0}, {wakePipe[0], POLLIN, 0}};
    while (true) {
        throwIfInterrupted();
        if (poll(waits, 2, -1) > 0 && waits[0].revents != 0) return;
    }
}

void dieBySignal(int signalNumber)
{
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
    // Reached only if the signal is blocked.
    std::_Exit(128 + signalNumber);
}

} // namespace tarn
