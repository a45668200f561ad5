// Discards what a library prints to standard error.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace tarn
{

/// Redirects standard error to /dev/null while it exists. Only one object at a time. What other threads of the process
/// print meanwhile is lost: of them, only the progress bar prints while a source is read.
class QuietStandardError
{
public:
    QuietStandardError() noexcept : saved(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        static const int kNullDevice = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (saved >= 0 && kNullDevice >= 0) dup2(kNullDevice, STDERR_FILENO);
    }

    ~QuietStandardError()
    {
        if (saved < 0) return;
        std::fflush(stderr);
        dup2(saved, STDERR_FILENO);
        close(saved);
    }

    QuietStandardError(const QuietStandardError&) = delete;
    QuietStandardError& operator=(const QuietStandardError&) = delete;

private:
    int saved; ///< the original standard error
};

} // namespace tarn
