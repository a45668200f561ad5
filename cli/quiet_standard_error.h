#pragma once

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace tarn
{

/// Leads standard error to nowhere while it exists, for a library that prints there. One at a time in a process, which
/// has one thread while it decodes.
class QuietStandardError
{
public:
    QuietStandardError() noexcept : kept(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        static const int kNowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (kept >= 0 && kNowhere >= 0) dup2(kNowhere, STDERR_FILENO);
    }

    ~QuietStandardError()
    {
        if (kept < 0) return;
        std::fflush(stderr);
        dup2(kept, STDERR_FILENO);
        close(kept);
    }

    QuietStandardError(const QuietStandardError&) = delete;
    QuietStandardError& operator=(const QuietStandardError&) = delete;

private:
    int kept; ///< standard error as it was
};

} // namespace tarn
