// Marks of a time axis.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace tarn
{

/// A mark of a time axis.
struct TimeMark
{
    double seconds = 0.0;
    std::string label; ///< "0:30", "1:00:00", "0:01.5"
};

/// Marks at round times.
///
/// begin, end  of the axis, seconds
/// most        largest number of intervals between marks
std::vector<TimeMark> timeMarks(double begin, double end, double most);

} // namespace tarn
