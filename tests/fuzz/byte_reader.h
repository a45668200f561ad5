// Decisions from a fuzzer's bytes.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

namespace fuzz
{

/// Reads decisions from bytes in order. Bytes after the end are zero.
class ByteReader
{
public:
    ByteReader(const std::uint8_t* bytes, std::size_t size) : remaining(bytes, size) {}

    bool empty() const { return remaining.empty(); }

    std::uint8_t byte()
    {
        if (remaining.empty()) return 0;
        const std::uint8_t first = remaining.front();
        remaining = remaining.subspan(1);
        return first;
    }

    /// Four bytes as a number.
    std::uint32_t word()
    {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) value = value << 8 | byte();
        return value;
    }

    /// 0 to count - 1, for counts up to 256.
    std::uint32_t below(std::uint32_t count) { return byte() % count; }

    template <typename T, std::size_t kCount>
    const T& oneOf(const std::array<T, kCount>& choices)
    {
        static_assert(kCount <= 256);
        return choices[below(kCount)];
    }

    /// The next count bytes, or fewer at the end.
    std::span<const std::uint8_t> bytes(std::size_t count)
    {
        const auto taken = remaining.first(count < remaining.size() ? count : remaining.size());
        remaining = remaining.subspan(taken.size());
        return taken;
    }

    /// The bytes up to a mark, which is skipped, or to the end.
    std::string textUpTo(char mark)
    {
        std::string text;
        while (!remaining.empty()) {
            const auto next = static_cast<char>(byte());
            if (next == mark) break;
            text += next;
        }
        return text;
    }

    /// The remaining bytes.
    std::span<const std::uint8_t> rest() { return bytes(remaining.size()); }

private:
    std::span<const std::uint8_t> remaining;
};

} // namespace fuzz
