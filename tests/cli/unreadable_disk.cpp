// A preloaded library that makes files unreadable after 30000 bytes, as bad sectors do.
// SPDX-License-Identifier: MIT
#include "tests/cli/hidden_by.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include <unistd.h>

namespace
{

constexpr off_t kReadable = 30000;

ssize_t readUntilDamage(const char* name, int descriptor, void* to, std::size_t count, off_t position)
{
    if (position >= kReadable) {
        errno = EIO;
        return -1;
    }
    const auto left = static_cast<std::size_t>(kReadable - position);
    return tests::hiddenBy(pread, name)(descriptor, to, std::min(count, left), position);
}

} // namespace

extern "C" ssize_t pread(int descriptor, void* to, std::size_t count, off_t position)
{
    return readUntilDamage("pread", descriptor, to, count, position);
}

extern "C" ssize_t pread64(int descriptor, void* to, std::size_t count, off_t position)
{
    return readUntilDamage("pread64", descriptor, to, count, position);
}
