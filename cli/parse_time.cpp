// Reads seconds, minutes and hours.
// SPDX-License-Identifier: MIT
#include "cli/parse_time.h"

#include <cmath>
#include <regex>

namespace tarn
{

std::optional<double> parseTime(const std::string& text)
{
    static const std::regex kTime("(?:(?:([0-9]{1,4}):)?([0-9]{1,2}):([0-5][0-9](?:\\.[0-9]{1,6})?)|"
                                  "([0-9]{1,8}(?:\\.[0-9]{1,6})?))");
    std::smatch match;
    if (!std::regex_match(text, match, kTime)) return std::nullopt;
    if (match[4].matched) return std::stod(match[4]);
    const double hours = match[1].matched ? std::stod(match[1]) : 0.0;
    const double minutes = std::stod(match[2]);
    if (match[1].matched && minutes >= 60.0) return std::nullopt;
    return 3600.0 * hours + 60.0 * minutes + std::stod(match[3]);
}

std::uint64_t framesOf(const std::string& time, std::uint32_t sampleRate)
{
    return static_cast<std::uint64_t>(std::llround(parseTime(time).value() * sampleRate));
}

} // namespace tarn
