// Parses whole numbers.
// SPDX-License-Identifier: MIT
#pragma once

#include <charconv>
#include <string_view>
#include <system_error>

namespace tarn
{

/// Parses a whole text as a number. Returns whether it is one.
template <typename Number>
bool parseNumber(std::string_view text, Number& number, int base = 10)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

} // namespace tarn
