#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarn
{

/// A file name as a shell takes it: unchanged where that is safe, in single quotes otherwise.
///
/// Names with control characters or bytes that are not UTF-8 are quoted as $'...' with octal numbers, which bash, zsh
/// and ksh know, so that the quoted form is the same after printable().
std::string shellQuoted(const std::string& name);

/// A text for a line on a terminal: control characters (C0, DEL and C1) and bytes that are not UTF-8 become '?'.
std::string printable(const std::string& text);

/// The system's words for an error number.
std::string systemError(int errorNumber);

/// A length of audio as minutes and seconds, 1:02.345, or with hours, 2:00:00.000.
std::string durationText(std::uint64_t frames, std::uint32_t sampleRate);

/// The same without milliseconds, 1:02.
std::string shortDurationText(std::uint64_t frames, std::uint32_t sampleRate);

/// Formats one number as printf does.
std::string formatted(const char* format, double value);

/// Whether all of a text is UTF-8.
bool isUtf8(const std::string& text) noexcept;

/// Characters of a text in UTF-8.
std::size_t characters(const std::string& text);

/// The end of a text, with ... before it where characters are left out.
std::string lastCharacters(const std::string& text, std::size_t most);

/// A text with blanks before it up to a width in characters.
std::string rightAligned(const std::string& text, std::size_t width);

/// A text with blanks behind it up to a width in characters.
std::string padded(const std::string& text, std::size_t width);

/// Decibels of a ratio of amplitudes; minus infinity for zero.
double decibels(double ratio) noexcept;

} // namespace tarn
