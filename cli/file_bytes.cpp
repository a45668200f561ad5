// Reads numbers and marks at any position of a file.
// SPDX-License-Identifier: MIT
#include "cli/file_bytes.h"

#include "cli/interrupt.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::size_t kBufferBytes = 65536;

} // namespace

FileBytes::FileBytes(int descriptor) : fd(descriptor)
{
    struct stat status = {};
    fstat(fd, &status);
    length = static_cast<std::uint64_t>(status.st_size);
}

FileBytes::FileBytes(int descriptor, ByteRange part) : fd(descriptor), origin(part.begin), length(part.size()) {}

std::string_view FileBytes::at(std::uint64_t position, std::size_t count) const
{
    return buffered(position, count).substr(0, count);
}

std::string_view FileBytes::buffered(std::uint64_t position, std::size_t count) const
{
    if (position >= length) return {};
    const std::uint64_t end = std::min(position + count, length);
    if (position < bufferBegin || end > bufferBegin + buffer.size()) {
        throwIfInterrupted();
        buffer.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kBufferBytes, length - position)));
        const ssize_t got = pread(fd, buffer.data(), buffer.size(), static_cast<off_t>(origin + position));
        buffer.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        bufferBegin = position;
    }
    return std::string_view(buffer.data(), buffer.size()).substr(static_cast<std::size_t>(position - bufferBegin));
}

bool FileBytes::marks(std::uint64_t position, std::string_view mark) const
{
    return at(position, mark.size()) == mark;
}

std::uint64_t FileBytes::number(std::uint64_t position, std::size_t count, bool bigEndian) const
{
    const std::string_view bytes = at(position, count);
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t from = bigEndian ? i : count - 1 - i;
        value = value << 8 | (from < bytes.size() ? static_cast<unsigned char>(bytes[from]) : 0u);
    }
    return value;
}

std::uint64_t FileBytes::skipZeros(std::uint64_t position, std::uint64_t limit) const
{
    while (position < limit) {
        const std::string_view bytes = buffered(position, 1);
        if (bytes.empty()) break;
        if (const std::size_t other = bytes.find_first_not_of('\0'); other != std::string_view::npos)
            return std::min(position + other, limit);
        position += bytes.size();
    }
    return limit;
}

std::uint64_t FileBytes::find(char byte, std::uint64_t position, std::uint64_t limit) const
{
    while (position < limit) {
        const std::string_view bytes = buffered(position, 1);
        if (bytes.empty()) break;
        if (const std::size_t found = bytes.find(byte); found != std::string_view::npos)
            return std::min(position + found, limit);
        position += bytes.size();
    }
    return limit;
}

std::uint64_t FileBytes::findName(std::span<const std::string_view> names, std::uint64_t position,
                                  std::uint64_t limit) const
{
    constexpr std::size_t kNameBytes = 4;
    const auto wordAt = [](const char* bytes) {
        std::uint32_t word = 0;
        std::memcpy(&word, bytes, kNameBytes);
        return word;
    };
    std::vector<std::uint32_t> words;
    std::array<bool, 256> isFirst{}; // by byte: whether a name begins with it
    for (const std::string_view name : names) {
        words.push_back(wordAt(name.data()));
        isFirst[static_cast<unsigned char>(name.front())] = true;
    }
    while (position < limit) {
        const std::string_view bytes = buffered(position, kNameBytes);
        if (bytes.size() < kNameBytes) break;
        const std::size_t starts = bytes.size() - kNameBytes + 1;
        for (std::size_t i = 0; i < starts; ++i)
            if (isFirst[static_cast<unsigned char>(bytes[i])] &&
                std::ranges::find(words, wordAt(bytes.data() + i)) != words.end())
                return std::min(position + i, limit);
        position += starts;
    }
    return limit;
}

std::uint64_t FileBytes::id3v2Size(std::uint64_t position) const
{
    constexpr std::uint64_t kHeader = 10;
    if (!marks(position, "ID3")) return 0;
    std::uint64_t size = 0;
    for (std::uint64_t i = 0; i < 4; ++i) size = size << 7 | (number(position + 6 + i, 1, true) & 0x7f);
    const bool hasFooter = (number(position + 5, 1, true) & 0x10) != 0;
    return kHeader + size + (hasFooter ? kHeader : 0);
}

} // namespace tarn
