// Quoting, UTF-8 and number formatting for messages.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// Quotes a file name for a shell: unchanged if that is safe, else in single quotes.
///
/// Quotes names with unprintable characters or bytes that are not UTF-8 as $'...' with octal numbers for bash, zsh and
/// ksh. printable() does not change the quoted form.
std::string shellQuoted(const std::string& name);

/// Makes a text safe for a terminal: characters that are not printable, such as control characters and changes of
/// direction, and bytes that are not UTF-8 become '?'.
std::string printable(const std::string& text);

/// The system's message for an error number.
std::string systemError(int errorNumber);

/// A length of audio as minutes and seconds, 1:02.345, or with hours, 2:00:00.000.
std::string durationText(std::uint64_t frames, std::uint32_t sampleRate);

/// The same without milliseconds, 1:02.
std::string shortDurationText(std::uint64_t frames, std::uint32_t sampleRate);

/// Formats a number like printf.
std::string formatted(const char* format, double value);

/// Whether a text is valid UTF-8.
bool isUtf8(const std::string& text) noexcept;

/// Number of characters of a UTF-8 text.
std::size_t characters(const std::string& text);

/// Truncates a text to its last characters, with ... in front.
std::string lastCharacters(const std::string& text, std::size_t maxCharacters);

/// The words as a list: "16, 24 or 32".
std::string listOf(const std::vector<std::string>& words);

/// Pads a text on the left to a width in characters.
std::string rightAligned(const std::string& text, std::size_t width);

/// Pads a text on the right to a width in characters.
std::string padded(const std::string& text, std::size_t width);

} // namespace tarn
