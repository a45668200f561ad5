// The ERB axis of spectrograms.
// SPDX-License-Identifier: MIT
#include "picture/frequency_axis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <vector>

namespace
{

constexpr std::size_t kRows = 512;
constexpr std::size_t kBins = 2049;
constexpr double kBinHz = 48000.0 / 4096.0;

std::vector<float> rowsOf(const std::vector<float>& power)
{
    std::vector<float> rows(kRows);
    tarn::FrequencyRows(kRows, kBinHz, kBins).addTo(rows.data(), 1, power.data());
    return rows;
}

} // namespace

TEST(FrequencyAxis, PositionsAndFrequenciesAreInverse)
{
    EXPECT_DOUBLE_EQ(tarn::axisPosition(30.0), 0.0);
    EXPECT_DOUBLE_EQ(tarn::axisPosition(18000.0), 1.0);
    for (int step = 0; step <= 20; ++step) {
        const double position = step / 20.0;
        EXPECT_NEAR(tarn::axisPosition(tarn::axisFrequencyHz(position)), position, 1e-12);
    }
}

TEST(FrequencyAxis, TiltIs39DecibelsPerOctave)
{
    EXPECT_DOUBLE_EQ(tarn::tiltFactor(1000.0), 1.0);
    EXPECT_NEAR(10.0 * std::log10(tarn::tiltFactor(8000.0)), 3.0 * 3.9, 1e-9);
    EXPECT_NEAR(10.0 * std::log10(tarn::tiltFactor(62.5)), -4.0 * 3.9, 1e-9);
}

TEST(FrequencyAxis, FlatSpectrumFollowsTheTilt)
{
    const std::vector<float> rows = rowsOf(std::vector<float>(kBins, 1.0f));
    for (std::size_t row = 2; row < kRows; ++row) {
        const double frequencyHz = tarn::axisFrequencyHz((static_cast<double>(row) + 0.5) / kRows);
        // The row has the tilt of its middle; its weights are rounded to single precision.
        EXPECT_NEAR(static_cast<double>(rows[row]) / tarn::tiltFactor(frequencyHz), 1.0, 0.01) << row;
    }
}

TEST(FrequencyAxis, ABinIsInTheRowOfItsFrequency)
{
    for (const std::size_t bin : {5u, 17u, 85u, 427u, 1400u}) {
        std::vector<float> power(kBins);
        power[bin] = 1.0f;
        const std::vector<float> rows = rowsOf(power);
        double sum = 0.0;
        double middle = 0.0;
        for (std::size_t row = 0; row < kRows; ++row) {
            sum += static_cast<double>(rows[row]);
            middle += static_cast<double>(rows[row]) * (static_cast<double>(row) + 0.5);
        }
        const double expected = tarn::axisPosition(static_cast<double>(bin) * kBinHz) * kRows;
        EXPECT_NEAR(middle / sum, expected, 2.0) << bin; // low bins reach over many rows, which are not symmetrical
    }
}
