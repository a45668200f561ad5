// Decisions from a fuzzer's bytes.
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
    ByteReader(const std::uint8_t* bytes, std::size_t size) : rest_(bytes, size) {}

    bool empty() const { return rest_.empty(); }

    std::uint8_t byte()
    {
        if (rest_.empty()) return 0;
        const std::uint8_t first = rest_.front();
        rest_ = rest_.subspan(1);
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
        const auto taken = rest_.first(count < rest_.size() ? count : rest_.size());
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

    /// The bytes up to a mark, which is skipped, or to the end.
    std::string textUpTo(char mark)
    {
        std::string text;
        while (!rest_.empty()) {
            const auto next = static_cast<char>(byte());
            if (next == mark) break;
            text += next;
        }
        return text;
    }

    /// The remaining bytes.
    std::span<const std::uint8_t> rest() { return bytes(rest_.size()); }

private:
    std::span<const std::uint8_t> rest_;
};

} // namespace fuzz
