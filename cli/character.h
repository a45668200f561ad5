// The characters of UTF-8 texts, and which of them are safe for a terminal.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace tarn
{

/// A character of a UTF-8 text.
struct Character
{
    std::size_t bytes = 0; ///< length; 0 if the bytes are invalid
    char32_t code = 0;     ///< code point

    /// Whether a terminal shows it as itself. Control characters and characters that change the direction of text or
    /// are invisible are not printable, except the two joiners that some scripts need.
    bool isPrintable() const noexcept;
};

/// The first character of a text that is not empty.
Character firstCharacter(std::string_view text) noexcept;

/// Whether a byte continues a UTF-8 character.
bool isContinuation(char byte) noexcept;

} // namespace tarn
