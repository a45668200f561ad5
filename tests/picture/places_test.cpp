// Directions between left, centre and right.
// SPDX-License-Identifier: MIT
#include "picture/places.h"

#include "picture/frequency_axis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

TEST(Places, PannedSourceIsAtItsAngle)
{
    for (const float coherence : {0.0f, 0.5f, 1.0f}) {
        EXPECT_EQ(tarn::directionOf(1.0f, 0.0f, 0.0f, coherence), 0.0f);
        EXPECT_EQ(tarn::directionOf(0.0f, 0.0f, 1.0f, coherence), 1.0f);
        EXPECT_NEAR(tarn::directionOf(0.0f, 1.0f, 0.0f, coherence), 0.5f, 2e-5f);
    }
    for (int step = 0; step <= 100; ++step) {
        const double angle = step / 200.0 * std::numbers::pi;
        const auto left = static_cast<float>(std::cos(angle));
        const auto right = static_cast<float>(std::sin(angle));
        const auto direction = static_cast<float>(step) / 100.0f;
        // A polynomial replaces the arctangent.
        EXPECT_NEAR(tarn::directionOf(left, 0.0f, right, 0.0f), direction, 2e-5f);
        EXPECT_NEAR(tarn::directionOf(left, 0.0f, right, 1.0f), direction, 2e-5f);
        // The centre plays what both sides share: the sum of amplitudes is that of the stereo.
        const float shared = std::min(left, right);
        EXPECT_NEAR(tarn::directionOf(left - shared, std::sqrt(2.0f) * shared, right - shared, 1.0f), direction, 2e-5f);
        // The centre plays the power that both sides share.
        const double power = std::min(std::cos(angle) * std::cos(angle), std::sin(angle) * std::sin(angle));
        const auto rest = [power](double gain) { return static_cast<float>(std::sqrt(gain * gain - power)); };
        EXPECT_NEAR(tarn::directionOf(rest(std::cos(angle)), static_cast<float>(std::sqrt(2.0 * power)),
                                      rest(std::sin(angle)), 0.0f),
                    direction, 2e-5f);
    }
}

TEST(Places, CoherenceFallsWithTheFrequency)
{
    EXPECT_EQ(tarn::coherenceAt(0.0), 1.0);
    EXPECT_EQ(tarn::coherenceAt(2500.0), 0.5);
    EXPECT_EQ(tarn::coherenceAt(22500.0), 0.1);
}

TEST(Places, EnergyOfABinIsAroundItsRow)
{
    constexpr double kBinHz = 10.0;
    std::vector<float> left(1001), centre(1001), right(1001);
    centre[100] = 0.5f; // 1 kHz, where the tilt is 1
    left[100] = 0.25f;
    std::vector<float> values(tarn::kPlaceRows * tarn::kPlaceValues);
    tarn::Places(kBinHz, left.size()).addTo(values.data(), left.data(), centre.data(), right.data());
    const float row =
        tarn::rowOf(tarn::directionOf(0.5f, std::sqrt(0.5f), 0.0f, static_cast<float>(tarn::coherenceAt(1000.0))));
    double sums[3] = {};
    double middle = 0.0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::size_t itsRow = i / 3;
        sums[i % 3] += static_cast<double>(values[i]);
        middle += static_cast<double>(values[i]) * static_cast<double>(itsRow) / 0.75;
        EXPECT_GE(values[i], 0.0f);
        if (std::abs(static_cast<float>(itsRow) - row) >= 3.0f) {
            EXPECT_EQ(values[i], 0.0f) << itsRow;
        }
    }
    EXPECT_NEAR(sums[0], 0.25, 1e-6); // weights of sum 1, in single precision
    EXPECT_NEAR(sums[1], 0.5, 1e-6);
    EXPECT_EQ(sums[2], 0.0);
    EXPECT_NEAR(middle, static_cast<double>(row), 1e-4);
}

TEST(Places, SidesAndSilenceStayInTheTable)
{
    std::vector<float> left(1001), centre(1001), right(1001);
    left[100] = right[101] = 1.0f;
    std::vector<float> values(tarn::kPlaceRows * tarn::kPlaceValues);
    tarn::Places(10.0, left.size()).addTo(values.data(), left.data(), centre.data(), right.data());
    double sum = 0.0;
    for (const float value : values) sum += static_cast<double>(value);
    EXPECT_NEAR(sum, 1.0 + tarn::tiltFactor(1010.0), 1e-5); // in single precision
    EXPECT_EQ(values[tarn::kPlaceMargin * 3], 0.375f);
    EXPECT_EQ(values[(tarn::kPlaceMargin + tarn::kPlaceSteps) * 3 + 2],
              0.375f * static_cast<float>(tarn::tiltFactor(1010.0)));
}
