// Quotes file names, checks UTF-8, formats durations and columns.
// SPDX-License-Identifier: MIT
#include "cli/text.h"

#include "cli/character.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <system_error>

namespace tarn
{

namespace
{

/// Quotes as $'...' with octal numbers for unprintable bytes.
std::string dollarQuoted(const std::string& name)
{
    std::string quoted = "$'";
    for (std::string_view rest = name; !rest.empty();) {
        const Character character = firstCharacter(rest);
        if (!character.isPrintable()) {
            const auto byte = static_cast<unsigned char>(rest[0]);
            const auto digit = [byte](int shift) { return static_cast<char>('0' + (byte >> shift & 7)); };
            quoted.append({'\\', digit(6), digit(3), digit(0)});
            rest.remove_prefix(1);
        } else {
            if (rest[0] == '\'' || rest[0] == '\\') quoted += '\\';
            quoted += rest.substr(0, character.bytes);
            rest.remove_prefix(character.bytes);
        }
    }
    return quoted + "'";
}

} // namespace

std::string shellQuoted(const std::string& name)
{
    constexpr std::string_view kSafe = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./+,:@%";
    if (!name.empty() && name.find_first_not_of(kSafe) == std::string::npos) return name;
    if (printable(name) != name) return dollarQuoted(name);

    std::string quoted = "'";
    for (const char c : name) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

std::string printable(const std::string& text)
{
    std::string line;
    for (std::string_view rest = text; !rest.empty();) {
        const Character character = firstCharacter(rest);
        line += character.isPrintable() ? rest.substr(0, character.bytes) : "?";
        // A control character of several bytes becomes one question mark.
        rest.remove_prefix(std::max<std::size_t>(character.bytes, 1));
    }
    return line;
}

std::string systemError(int errorNumber)
{
    return std::generic_category().message(errorNumber);
}

std::string durationText(std::uint64_t frames, std::uint32_t sampleRate)
{
    const std::uint64_t milliseconds = frames / sampleRate * 1000 + frames % sampleRate * 1000 / sampleRate;
    const auto hours = static_cast<unsigned>(milliseconds / 3'600'000);
    const auto minutes = static_cast<unsigned>(milliseconds / 60'000 % 60);
    const auto seconds = static_cast<unsigned>(milliseconds / 1000 % 60);
    const auto rest = static_cast<unsigned>(milliseconds % 1000);

    char text[40];
    if (hours > 0) {
        std::snprintf(text, sizeof text, "%u:%02u:%02u.%03u", hours, minutes, seconds, rest);
    } else {
        std::snprintf(text, sizeof text, "%u:%02u.%03u", minutes, seconds, rest);
    }
    return text;
}

std::string shortDurationText(std::uint64_t frames, std::uint32_t sampleRate)
{
    const std::string whole = durationText(frames, sampleRate);
    return whole.substr(0, whole.find('.'));
}

std::string formatted(const char* format, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

bool isUtf8(const std::string& text) noexcept
{
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t bytes = firstCharacter(rest).bytes;
        if (bytes == 0) return false;
        rest.remove_prefix(bytes);
    }
    return true;
}

std::size_t characters(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return !isContinuation(c); }));
}

std::string lastCharacters(const std::string& text, std::size_t maxCharacters)
{
    const std::string gap = "...";
    if (characters(text) <= maxCharacters) return text;
    std::size_t start = text.size();
    for (std::size_t kept = 0; kept + gap.size() < maxCharacters; ++kept)
        while (start > 0 && isContinuation(text[--start])) {
        }
    return gap + text.substr(start);
}

std::string padded(const std::string& text, std::size_t width)
{
    return text + std::string(width - std::min(width, characters(text)), ' ');
}

std::string listOf(const std::vector<std::string>& words)
{
    std::string list;
    for (const std::string& word : words) list += (list.empty() ? "" : &word == &words.back() ? " or " : ", ") + word;
    return list;
}

std::string rightAligned(const std::string& text, std::size_t width)
{
    return std::string(width - std::min(width, characters(text)), ' ') + text;
}

} // namespace tarn
