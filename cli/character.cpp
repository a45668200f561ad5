// Decodes UTF-8 characters.
// SPDX-License-Identifier: MIT
#include "cli/character.h"

#include <algorithm>
#include <array>

namespace tarn
{

namespace
{

struct Range
{
    char32_t first;
    char32_t last;
};

constexpr std::array<Range, 11> kUnprintable{{
    {0x0000, 0x001f},   // control characters
    {0x007f, 0x009f},   // DEL, C1
    {0x061c, 0x061c},   // Arabic letter mark
    {0x180e, 0x180e},   // vowel separator, invisible
    {0x200b, 0x200b},   // space without width
    {0x200e, 0x200f},   // marks of direction
    {0x2028, 0x202e},   // separators of lines and paragraphs, embeddings and overrides of direction
    {0x2060, 0x206f},   // invisible operators, isolates of direction, former format characters
    {0xfeff, 0xfeff},   // byte-order mark
    {0xfff9, 0xfffb},   // annotations
    {0xe0000, 0xe007f}, // tags, invisible
}};

} // namespace

bool Character::isPrintable() const noexcept
{
    return bytes > 0 && std::none_of(kUnprintable.begin(), kUnprintable.end(),
                                     [this](const Range& range) { return code >= range.first && code <= range.last; });
}

bool isContinuation(char byte) noexcept
{
    return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
}

Character firstCharacter(std::string_view text) noexcept
{
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) return {.bytes = 1, .code = first};
    const std::size_t bytes = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < bytes) return {};
    char32_t code = first & (0xffu >> (bytes + 1));
    for (std::size_t i = 1; i < bytes; ++i) {
        if (!isContinuation(text[i])) return {};
        code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3fu);
    }
    // Refuses overlong forms, UTF-16 surrogates, and code points above U+10FFFF.
    constexpr std::array<char32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
    if (code < kSmallest[bytes] || (code >= 0xd800 && code <= 0xdfff) || code > 0x10ffff) return {};
    return {.bytes = bytes, .code = code};
}

} // namespace tarn
