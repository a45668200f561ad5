// Buffered random access to the bytes of a file.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/byte_range.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace tarn
{

/// Reads numbers and marks at any position of a file or of a part of it. Buffers the bytes near the last position.
///
/// All functions that read throw Interrupted if a signal arrived.
class FileBytes
{
public:
    /// descriptor  open for reading; its position does not change
    explicit FileBytes(int descriptor);

    /// Positions count from the start of the part.
    FileBytes(int descriptor, ByteRange part);

    std::uint64_t size() const noexcept { return length; }

    /// Whether the file has the mark at the position.
    bool marks(std::uint64_t position, std::string_view mark) const;

    /// A number of 1 to 8 bytes; bytes beyond the end count as zero.
    std::uint64_t number(std::uint64_t position, std::size_t count, bool bigEndian) const;

    /// The position of the first byte other than zero from a position on; limit if there is none before it.
    std::uint64_t skipZeros(std::uint64_t position, std::uint64_t limit) const;

    /// The position of a byte from a position on; limit if there is none before it.
    std::uint64_t find(char byte, std::uint64_t position, std::uint64_t limit) const;

    /// The position of the first of some names of four characters from a position on; limit if there is none before it.
    std::uint64_t findName(std::span<const std::string_view> names, std::uint64_t position, std::uint64_t limit) const;

    /// The size of an ID3v2 tag at the position, with its header; 0 if there is none.
    std::uint64_t id3v2Size(std::uint64_t position) const;

private:
    /// Up to count bytes from a position on; fewer at the end of the file.
    std::string_view at(std::uint64_t position, std::size_t count) const;

    /// At least count bytes from a position on, and all that are in the buffer; fewer at the end of the file.
    std::string_view buffered(std::uint64_t position, std::size_t count) const;

    int fd;
    std::uint64_t origin = 0; ///< offset of position 0 in the file
    std::uint64_t length = 0;
    mutable std::vector<char> buffer;
    mutable std::uint64_t bufferBegin = 0;
};

} // namespace tarn
