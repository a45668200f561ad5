#pragma once

#include <cstdint>

namespace tarn
{

/// A part of a file.
struct ByteRange
{
    std::uint64_t begin = 0;
    std::uint64_t end = 0; ///< the position behind the last byte

    std::uint64_t size() const noexcept { return end - begin; }
};

} // namespace tarn
