#pragma once

#include <CLI/CLI.hpp>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

// What the values of options may be. The messages follow the name of the option.

namespace tarn
{

/// The message about a value that an option does not accept.
///
/// accepted  what it accepts: "a number from 0 to 1"
/// example   how to write it
inline std::string refusal(const std::string& value, const std::string& accepted, const std::string& example)
{
    return "'" + value + "' is not " + accepted + "; write for example " + example;
}

/// Accepts numbers in a range, whole ones if the limits are integers.
template <typename Number>
CLI::Validator numberFrom(Number least, Number most, const std::string& example)
{
    const std::string accepted = std::string(std::is_integral_v<Number> ? "a whole number" : "a number") + " from " +
                                 CLI::detail::to_string(least) + " to " + CLI::detail::to_string(most);
    const auto check = [=](const std::string& value) -> std::string {
        Number number{};
        // A value that is not a number fails the comparisons.
        const bool fits = CLI::detail::lexical_cast(value, number) && number >= least && number <= most;
        return fits ? "" : refusal(value, accepted, example);
    };
    return {check, ""};
}

/// Accepts some words only.
template <typename Words>
CLI::Validator oneOf(const Words& words, const std::string& example)
{
    std::vector<std::string> texts;
    std::transform(std::begin(words), std::end(words), std::back_inserter(texts),
                   [](const auto& word) { return CLI::detail::to_string(word); });
    std::string accepted;
    for (const std::string& text : texts)
        accepted += (accepted.empty() ? "" : &text == &texts.back() ? " or " : ", ") + text;
    const auto check = [=](const std::string& value) -> std::string {
        const bool fits = std::find(texts.begin(), texts.end(), value) != texts.end();
        return fits ? "" : refusal(value, accepted, example);
    };
    return {check, ""};
}

/// The same for a list that is written out.
template <typename Word>
CLI::Validator oneOf(std::initializer_list<Word> words, const std::string& example)
{
    return oneOf(std::vector<Word>(words), example);
}

} // namespace tarn
