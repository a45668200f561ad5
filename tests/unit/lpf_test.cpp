// Tests of filterbank/lpf.cpp: the limits of the prototype filter.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>
#include <vector>

// tools/measure_lpf.py checks the same limits and the figures of the whole chain.

namespace
{

constexpr int kTaps = 1024;

/// The low-pass without the signs of the polyphase structure.
double tap(int i)
{
    const double value = static_cast<double>(lpf[i]);
    return i / 128 % 2 == 0 ? value : -value;
}

/// Magnitude of the low-pass at a frequency in radians per sample; its taps are symmetric.
double responseAt(double omega)
{
    double sum = 0.0;
    for (int i = 0; i < kTaps / 2; ++i) sum += 2.0 * tap(i) * std::cos(omega * (511.5 - i));
    return std::fabs(sum);
}

} // namespace

TEST(PrototypeFilter, IsExactlyAntisymmetric)
{
    for (int i = 0; i < kTaps / 2; ++i) {
        const float mirrored = -lpf[kTaps - 1 - i];
        EXPECT_EQ(0, std::memcmp(&lpf[i], &mirrored, sizeof mirrored)) << "tap " << i;
    }
}

TEST(PrototypeFilter, HasItsPeakAtTheCentre)
{
    EXPECT_EQ(lpf[511], -0.00894515961f);
    EXPECT_EQ(lpf[512], 0.00894515961f);
    for (int i = 0; i < 511; ++i) EXPECT_LT(std::fabs(lpf[i]), lpf[512]) << "tap " << i;
}

TEST(PrototypeFilter, EndsNearZero)
{
    EXPECT_EQ(lpf[0], -7e-08f);
    for (int i = 0; i < 40; ++i) EXPECT_LT(std::fabs(lpf[i]), 1e-6f) << "tap " << i;
}

TEST(PrototypeFilter, HasUnityGainAtDc)
{
    double sum = 0.0;
    for (int i = 0; i < kTaps; ++i) sum += tap(i);
    EXPECT_NEAR(sum, 1.0, 1e-7);
}

TEST(PrototypeFilter, HasTheGivenSumOfSquares)
{
    double sum = 0.0;
    for (int i = 0; i < kTaps; ++i) sum += tap(i) * tap(i);
    char digits[16];
    std::snprintf(digits, sizeof digits, "%.8f", sum);
    EXPECT_STREQ(digits, "0.00781304");
}

TEST(PrototypeFilter, ChangesSignAtTheGivenTapsAndHasNoZero)
{
    std::vector<int> changes;
    for (int i = 0; i < kTaps; ++i) {
        EXPECT_NE(lpf[i], 0.0f);
        if (i > 0 && std::signbit(lpf[i]) != std::signbit(lpf[i - 1])) changes.push_back(i);
    }
    EXPECT_EQ(changes, (std::vector<int>{128, 172, 256, 288, 384, 400, 512, 624, 640, 736, 768, 852, 896}));
}

TEST(PrototypeFilter, HasSmallSideLobes)
{
    for (int i = 0; i < 400; ++i) EXPECT_LE(std::fabs(lpf[i]), 0.0012f) << "tap " << i;
}

TEST(PrototypeFilter, StopbandIs100DecibelsDown)
{
    // Sixteen samples per side lobe; between two of them the response rises by less than 0.1 dB.
    constexpr int kSamples = 8192;
    const double atDc = responseAt(0.0);
    double highest = 0.0;
    for (int n = 0; n <= kSamples; ++n) {
        const double edge = std::numbers::pi / 64.0;
        highest = std::max(highest, responseAt(edge + (std::numbers::pi - edge) * n / kSamples));
    }
    EXPECT_LE(20.0 * std::log10(highest / atDc), -100.1);
}
