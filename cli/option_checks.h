// Validators for option values.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/text.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

namespace tarn
{

/// The message about an invalid value; the option parser puts the name of the option before it.
///
/// accepted  the valid values: "a number from 0 to 1"
/// example   a valid option
inline std::string refusal(const std::string& value, const std::string& accepted, const std::string& example)
{
    return "'" + value + "' is not " + accepted + "; write for example " + example;
}

/// Accepts a word, or numbers in a range: integers only if the limits are integers.
template <typename Number>
CLI::Validator wordOrNumberFrom(const std::string& word, Number minimum, Number maximum, const std::string& example)
{
    const std::string kind = std::is_integral_v<Number> ? "a whole number" : "a number";
    const std::string range = CLI::detail::to_string(minimum) + " to " + CLI::detail::to_string(maximum);
    const auto check = [=](const std::string& value) -> std::string {
        Number number{};
        const bool isNumber = CLI::detail::lexical_cast(value, number) && !std::isnan(static_cast<double>(number));
        if (isNumber && number >= minimum && number <= maximum) return "";
        if (isNumber) return value + " is out of range; use " + range + ", for example " + example;
        if (!word.empty() && value == word) return "";
        return refusal(value, (word.empty() ? "" : word + " or ") + kind + " from " + range, example);
    };
    return {check, ""};
}

/// Accepts numbers in a range: integers only if the limits are integers.
template <typename Number>
CLI::Validator numberFrom(Number minimum, Number maximum, const std::string& example)
{
    return wordOrNumberFrom("", minimum, maximum, example);
}

/// Accepts only the given words.
template <typename Words>
CLI::Validator oneOf(const Words& words, const std::string& example)
{
    std::vector<std::string> texts;
    std::transform(std::begin(words), std::end(words), std::back_inserter(texts),
                   [](const auto& word) { return CLI::detail::to_string(word); });
    const std::string accepted = listOf(texts);
    const auto check = [=](const std::string& value) -> std::string {
        const bool fits = std::find(texts.begin(), texts.end(), value) != texts.end();
        return fits ? "" : refusal(value, accepted, example);
    };
    return {check, ""};
}

inline CLI::Validator oneOf(std::initializer_list<const char*> words, const std::string& example)
{
    return oneOf(std::vector<const char*>(words), example);
}

/// Accepts only the names of the entries of a table.
template <typename Entry, std::size_t kCount>
CLI::Validator oneOfNames(const Entry (&entries)[kCount], const std::string& example)
{
    std::vector<const char*> names;
    for (const Entry& entry : entries) names.push_back(entry.name);
    return oneOf(names, example);
}

} // namespace tarn
