// Writes all bytes to a file descriptor.
// SPDX-License-Identifier: MIT
#include "cli/descriptor.h"

#include <cerrno>

namespace tarn
{

int writeAll(int descriptor, const void* bytes, std::size_t count) noexcept
{
    const auto* next = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t written = write(descriptor, next, count);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return written < 0 ? errno : EIO;
        next += written;
        count -= static_cast<std::size_t>(written);
    }
    return 0;
}

} // namespace tarn
