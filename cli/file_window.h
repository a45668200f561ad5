// A byte range of a file that libraries read like a file of its own.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/byte_range.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// A byte range of a file with its own position, for libraries that read files. Does not use the position of the
/// descriptor.
class FileWindow
{
public:
    FileWindow(int fileDescriptor, ByteRange range) noexcept : descriptor(fileDescriptor), part(range) {}

    /// Reads bytes at the position and advances it. Returns the number of bytes; fewer at the end, after an error, and
    /// after a signal that stops the work, so that libraries stop too.
    std::size_t read(void* to, std::size_t count) noexcept;

    /// Sets the position. Returns it, or -1 if it would be before the start.
    ///
    /// whence  SEEK_SET, SEEK_CUR or SEEK_END
    std::int64_t seek(std::int64_t offset, int whence) noexcept;

    /// Substitutes these bytes for those at a position.
    void replace(std::uint64_t position, std::string bytes);

    std::uint64_t position() const noexcept { return at; }
    std::uint64_t size() const noexcept { return part.size(); }

    /// The errno of the first read that failed, EINTR after a signal; 0 if none did.
    int error() const noexcept { return failed; }

private:
    struct Replacement
    {
        std::uint64_t position = 0;
        std::string bytes;
    };

    int descriptor;
    ByteRange part;
    std::uint64_t at = 0;
    int failed = 0;
    std::vector<Replacement> replacements;
};

} // namespace tarn
