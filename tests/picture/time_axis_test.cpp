// Marks of time axes.
// SPDX-License-Identifier: MIT
#include "picture/time_axis.h"

#include <gtest/gtest.h>

namespace
{

std::vector<std::string> labelsOf(double begin, double end, double most)
{
    std::vector<std::string> labels;
    for (const tarn::TimeMark& mark : tarn::timeMarks(begin, end, most)) labels.push_back(mark.label);
    return labels;
}

using Labels = std::vector<std::string>;

} // namespace

TEST(TimeAxis, MarksAreAtRoundTimes)
{
    EXPECT_EQ(labelsOf(0.0, 12.8, 7.0), (Labels{"0:00", "0:02", "0:04", "0:06", "0:08", "0:10", "0:12"}));
    EXPECT_EQ(labelsOf(29.5, 33.0, 4.0), (Labels{"0:30", "0:31", "0:32", "0:33"}));
    EXPECT_EQ(labelsOf(0.0, 1.0, 5.0), (Labels{"0:00.0", "0:00.2", "0:00.4", "0:00.6", "0:00.8", "0:01.0"}));
    EXPECT_EQ(labelsOf(59.9, 60.05, 3.0), (Labels{"0:59.90", "0:59.95", "1:00.00", "1:00.05"}));
    EXPECT_EQ(labelsOf(3000.0, 5400.0, 4.0), (Labels{"50:00", "1:00:00", "1:10:00", "1:20:00", "1:30:00"}));
}

TEST(TimeAxis, NeverHasMoreIntervalsThanAllowed)
{
    double length = 0.001;
    for (int step = 0; step < 65; ++step) {
        length *= 1.37;
        const auto marks = tarn::timeMarks(17.0, 17.0 + length, 12.0);
        EXPECT_LE(marks.size(), 13u) << length;
    }
}
