// A preloaded library that makes the disk full for every file that grows beyond 64 KiB.
// SPDX-License-Identifier: MIT
#include "tests/cli/hidden_by.h"

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

extern "C" ssize_t write(int descriptor, const void* bytes, std::size_t count)
{
    constexpr off_t kRoomBytes = 65536;
    struct stat status = {};
    const bool isFile = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    if (isFile && lseek(descriptor, 0, SEEK_CUR) + static_cast<off_t>(count) > kRoomBytes) {
        errno = ENOSPC;
        return -1;
    }
    return tests::hiddenBy(write, "write")(descriptor, bytes, count);
}
