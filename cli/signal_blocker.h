// Blocks signals of a thread.
// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>

namespace tarn
{

/// Blocks all signals of the calling thread while it exists. Processes and threads that start meanwhile inherit this.
class SignalBlocker
{
public:
    SignalBlocker()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }

    ~SignalBlocker() { release(); }

    SignalBlocker(const SignalBlocker&) = delete;
    SignalBlocker& operator=(const SignalBlocker&) = delete;

    /// Restores the signals earlier.
    void release() const noexcept { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

private:
    sigset_t before{};
};

} // namespace tarn
