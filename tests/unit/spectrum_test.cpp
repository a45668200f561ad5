// Tests of cinema/spectrum.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/spectrum.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::Random;

namespace
{

/// Adds a tenth of a magnitude in double and rounds to single.
float addTenth(float total, float value)
{
    return static_cast<float>(static_cast<double>(total) +
                              static_cast<double>(0.1f) * static_cast<double>(std::fabs(value)));
}

} // namespace

TEST(Spectrum, RoundsToSingleAfterEachAddition)
{
    float subband[64];
    for (int b = 0; b < 64; ++b) subband[b] = (b % 2 == 0 ? 1.0f : -1.0f) * (1e6f / static_cast<float>(b + 3));
    float spectrum = 123456.7f;
    float peakRegion = 0.0f;
    float rest = 0.0f;
    float expected = 123456.7f * 0.9f;
    for (const float value : subband) expected = addTenth(expected, value);
    trackSpectrum(subband, spectrum, peakRegion, rest);
    EXPECT_EQ(spectrum, expected);
    EXPECT_EQ(rest, spectrum - peakRegion);
}

TEST(Spectrum, RoundsTiesToEven)
{
    // A tenth of 1 is an odd number of half units of the last place of totals from 1/8 to 1/4. How it is rounded
    // depends on the total, and so on all lower bands.
    Random random(1);
    int odd = 0;
    for (int turn = 0; turn < 2000; ++turn) {
        float subband[64] = {};
        const int middle = turn % 64;
        subband[middle] = turn % 3 == 0 ? -1.0f : 1.0f;
        for (int b = 0; b < 64 && turn % 2 == 0; ++b)
            if (b != middle) subband[b] = static_cast<float>(random.uniform()) * 0x1p-12f;

        const float before = (0.1251f + 0.01f * static_cast<float>(random.below(1000)) / 1000.0f) / 0.9f;
        float expected = before * 0.9f;
        for (int b = 0; b < 64; ++b) {
            if (b == middle) odd += static_cast<int>(std::bit_cast<std::uint32_t>(expected) % 2);
            expected = addTenth(expected, std::fabs(subband[b]));
        }

        float spectrum = before;
        float peakRegion = 0.0f;
        float rest = 0.0f;
        trackSpectrum(subband, spectrum, peakRegion, rest);
        ASSERT_EQ(spectrum, expected) << "turn " << turn;
    }
    EXPECT_GT(odd, 500);
}

TEST(Spectrum, NaNAmongZerosIsNotSilence)
{
    for (int b = 0; b < 64; ++b) {
        float subband[64] = {};
        subband[b] = std::numeric_limits<float>::quiet_NaN();
        float spectrum = 1.0f;
        float peakRegion = 0.0f;
        float rest = 0.0f;
        trackSpectrum(subband, spectrum, peakRegion, rest);
        EXPECT_TRUE(std::isnan(spectrum)) << "band " << b;
    }
}

TEST(Spectrum, PeakRegionAddsStrongestUpperAndLowerBandInThisOrder)
{
    const auto regionOf = [](int strongest) {
        float subband[64];
        for (int b = 0; b < 64; ++b) subband[b] = 1.1f * static_cast<float>(b + 1);
        subband[strongest] = -1000.3f;
        float spectrum = 0.0f;
        float peakRegion = 77.7f;
        float rest = 0.0f;
        trackSpectrum(subband, spectrum, peakRegion, rest);
        return peakRegion;
    };
    const float peak = addTenth(77.7f * 0.9f, 1000.3f);
    EXPECT_EQ(regionOf(20), addTenth(addTenth(peak, 1.1f * 22.0f), 1.1f * 20.0f));
    EXPECT_EQ(regionOf(0), addTenth(peak, 1.1f * 2.0f));
    EXPECT_EQ(regionOf(63), addTenth(peak, 1.1f * 63.0f));
}

TEST(Spectrum, TiesKeepTheLowestBand)
{
    float subband[64] = {};
    subband[10] = 8.0f;
    subband[11] = 1.0f;
    subband[40] = -8.0f;
    subband[41] = 4.0f;
    float spectrum = 0.0f;
    float peakRegion = 0.0f;
    float rest = 0.0f;
    trackSpectrum(subband, spectrum, peakRegion, rest);
    EXPECT_EQ(peakRegion, addTenth(addTenth(0.0f, 8.0f), 1.0f));
}

TEST(Spectrum, DecaysToNineTenthsPerSilentBlock)
{
    const float silence[64] = {};
    float spectrum = 1000.0f;
    float peakRegion = 10.0f;
    float rest = 0.0f;
    trackSpectrum(silence, spectrum, peakRegion, rest);
    EXPECT_EQ(spectrum, 1000.0f * 0.9f);
    EXPECT_EQ(peakRegion, 10.0f * 0.9f);
}
