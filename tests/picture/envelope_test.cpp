// Peaks and energies over time.
// SPDX-License-Identifier: MIT
#include "picture/envelope.h"

#include <gtest/gtest.h>

TEST(Envelope, ColumnsHavePeakAndEnergyOfEveryChannel)
{
    tarn::Envelope envelope(2, 4);
    const float samples[8][2] = {{0.5f, 0.0f},  {-0.75f, 0.0f}, {0.0f, 0.0f}, {0.25f, 0.0f},
                                 {0.0f, 0.25f}, {0.0f, 0.0f},   {0.0f, 0.0f}, {0.0f, -0.5f}};
    for (std::uint64_t frame = 0; frame < 8; ++frame)
        for (std::size_t channel = 0; channel < 2; ++channel) envelope.add(frame, channel, samples[frame][channel]);
    ASSERT_EQ(envelope.peaks().columns(), 2u);
    EXPECT_EQ(envelope.peaks().column(0)[0], 0.75f);
    EXPECT_EQ(envelope.peaks().column(0)[1], 0.0f);
    EXPECT_EQ(envelope.peaks().column(1)[1], 0.5f);
    EXPECT_EQ(envelope.squares().column(0)[0], 0.875f);
    EXPECT_EQ(envelope.squares().column(1)[1], 0.3125f);
    EXPECT_EQ(envelope.energy(0), 0.875);
    EXPECT_EQ(envelope.energy(1), 0.3125);
    EXPECT_EQ(envelope.peak(), 0.75f);
}
