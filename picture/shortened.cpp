// Cuts texts between characters.
// SPDX-License-Identifier: MIT
#include "picture/shortened.h"

#include <algorithm>
#include <cstddef>

namespace tarn
{

namespace
{

/// The whole characters in the first bytes of a text.
std::string beginOf(const std::string& text, std::size_t bytes)
{
    const auto isInside = [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U; };
    while (bytes > 0 && bytes < text.size() && isInside(text[bytes])) --bytes;
    return text.substr(0, bytes);
}

} // namespace

std::string shortened(const std::string& text, double width, const TextWidth& widthOf)
{
    constexpr std::size_t kFirstBytes = 64;
    constexpr const char* kEllipsis = "\u2026";
    std::size_t tooLong = kFirstBytes;
    while (tooLong < text.size() && widthOf(beginOf(text, tooLong)) <= width) tooLong *= 2;
    if (tooLong >= text.size() && widthOf(text) <= width) return text;

    tooLong = std::min(tooLong, text.size());
    std::size_t fitting = 0;
    while (tooLong - fitting > 1) {
        const std::size_t middle = fitting + (tooLong - fitting) / 2;
        (widthOf(beginOf(text, middle) + kEllipsis) <= width ? fitting : tooLong) = middle;
    }
    return beginOf(text, fitting) + kEllipsis;
}

} // namespace tarn
