// A preloaded library with a file system without locks, on which another process adds a line to the ledger just before
// the disk is full. SPDX-License-Identifier: MIT
#include <cerrno>

#include <sys/file.h>
#include <unistd.h>

extern "C" int flock(int /*descriptor*/, int /*operation*/) noexcept
{
    errno = ENOLCK;
    return -1;
}

/// Only the ledger is synchronised by it.
extern "C" int fdatasync(int ledger)
{
    constexpr char kLine[] = "a line of another process\n";
    if (write(ledger, kLine, sizeof kLine - 1) < 0) return -1;
    errno = ENOSPC;
    return -1;
}
