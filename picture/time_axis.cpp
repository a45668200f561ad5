// Chooses the interval of time marks and writes their labels.
// SPDX-License-Identifier: MIT
#include "picture/time_axis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace tarn
{

namespace
{

constexpr std::array kSteps{0.01, 0.02, 0.05, 0.1,  0.2,  0.5,   1.0,   2.0,   5.0,    10.0,   15.0,   30.0,
                            60.0, 120., 300., 600., 900., 1800., 3600., 7200., 14400., 28800., 43200., 86400.};

/// Hours only if there are some; as many digits behind the point as the step needs.
std::string labelOf(double seconds, double step)
{
    const int digits = step >= 1.0 ? 0 : step >= 0.1 ? 1 : 2;
    const double minutes = std::floor((seconds + 1e-6) / 60.0);
    const double rest = std::max(0.0, seconds - 60.0 * minutes);
    std::array<char, 48> text{};
    const int width = digits == 0 ? 2 : 3 + digits;
    if (minutes >= 60.0) {
        const double hours = std::floor(minutes / 60.0);
        std::snprintf(text.data(), text.size(), "%.0f:%02.0f:%0*.*f", hours, minutes - 60.0 * hours, width, digits,
                      rest);
    } else {
        std::snprintf(text.data(), text.size(), "%.0f:%0*.*f", minutes, width, digits, rest);
    }
    return text.data();
}

} // namespace

std::vector<TimeMark> timeMarks(double begin, double end, double most)
{
    const double least = (end - begin) / std::max(1.0, most);
    const auto* const found =
        std::find_if(kSteps.begin(), kSteps.end(), [least](double step) { return step >= least; });
    const double step = found == kSteps.end() ? kSteps.back() : *found;
    std::vector<TimeMark> marks;
    const double first = std::ceil(begin / step - 1e-6);
    const auto count = static_cast<int>(std::floor(end / step + 1e-6) - first) + 1;
    for (int i = 0; i < count; ++i) {
        const double seconds = (first + i) * step;
        marks.push_back({.seconds = seconds, .label = labelOf(seconds, step)});
    }
    return marks;
}

} // namespace tarn
