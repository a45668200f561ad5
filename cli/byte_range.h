// A range of bytes in a file.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace tarn
{

/// A range of bytes in a file.
struct ByteRange
{
    std::uint64_t begin = 0;
    std::uint64_t end = 0; ///< the position after the last byte

    std::uint64_t size() const noexcept { return end - begin; }
};

} // namespace tarn
