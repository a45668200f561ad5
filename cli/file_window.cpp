// Reads and seeks inside a byte range of a file.
// SPDX-License-Identifier: MIT
#include "cli/file_window.h"

#include "cli/interrupt.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include <unistd.h>

namespace tarn
{

std::size_t FileWindow::read(void* to, std::size_t count) noexcept
{
    const std::uint64_t left = size() - std::min(at, size());
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, left));
    const std::uint64_t begin = at;
    std::size_t done = 0;
    while (done < wanted) {
        if (arrivedSignal() != 0) {
            failed = EINTR;
            break;
        }
        const ssize_t got =
            pread(descriptor, static_cast<char*>(to) + done, wanted - done, static_cast<off_t>(part.begin + at));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && failed == 0) failed = errno;
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
        at += static_cast<std::uint64_t>(got);
    }
    for (const Replacement& each : replacements)
        for (std::uint64_t i = 0; i < each.bytes.size(); ++i)
            if (each.position + i >= begin && each.position + i < at)
                static_cast<char*>(to)[each.position + i - begin] = each.bytes[i];
    return done;
}

void FileWindow::replace(std::uint64_t position, std::string bytes)
{
    replacements.push_back({.position = position, .bytes = std::move(bytes)});
}

std::int64_t FileWindow::seek(std::int64_t offset, int whence) noexcept
{
    const std::uint64_t from = whence == SEEK_CUR ? at : whence == SEEK_END ? size() : 0;
    std::int64_t position = 0;
    if (__builtin_add_overflow(static_cast<std::int64_t>(from), offset, &position) || position < 0) return -1;
    at = static_cast<std::uint64_t>(position);
    return position;
}

} // namespace tarn
