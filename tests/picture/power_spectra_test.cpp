// Windows and transforms of a picture.
// SPDX-License-Identifier: MIT
#include "picture/power_spectra.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

TEST(PowerSpectra, SineAtFullScaleHasThePowerOne)
{
    tarn::PowerSpectra spectra(2, 48000);
    ASSERT_EQ(spectra.points(), 4096u);
    constexpr int kBin = 100;
    for (int i = 0; i < 8192; ++i) {
        spectra.append(0, static_cast<float>(std::sin(2.0 * std::numbers::pi * kBin * i / 4096.0)));
        spectra.append(1, 0.0f);
    }
    ASSERT_TRUE(spectra.hasWindowAround(4096));
    spectra.transform(4096);
    // The transform has single precision.
    EXPECT_NEAR(spectra.power(0)[kBin], 1.0f, 1e-4f);
    EXPECT_NEAR(spectra.power(0)[kBin + 1], 0.25f, 1e-4f);
    EXPECT_LT(spectra.power(0)[kBin + 2], 1e-8f);
    for (std::size_t bin = 0; bin < spectra.bins(); ++bin) EXPECT_EQ(spectra.power(1)[bin], 0.0f);
}

TEST(PowerSpectra, CutsAtBothEndsAreNoClicks)
{
    // A constant is also one in the windows at its ends.
    for (const int frames : {3000, 20000}) {
        tarn::PowerSpectra spectra(1, 48000);
        for (int i = 0; i < frames; ++i) spectra.append(0, 0.5f);
        spectra.appendMirrored();
        for (const int frame : {0, 128, 2900, frames - 1}) {
            spectra.transform(static_cast<std::uint64_t>(frame));
            EXPECT_NEAR(spectra.power(0)[0], 1.0f, 1e-4f) << frame; // twice the amplitude of a sine wave's bin
            EXPECT_LT(spectra.power(0)[10], 1e-8f) << frame;
        }
    }
}

TEST(PowerSpectra, WindowsAreAsLongInTimeAtHighRates)
{
    EXPECT_EQ(tarn::PowerSpectra(1, 32000).points(), 4096u);
    EXPECT_EQ(tarn::PowerSpectra(1, 64000).points(), 4096u);
    EXPECT_EQ(tarn::PowerSpectra(1, 96000).points(), 8192u);
    EXPECT_EQ(tarn::PowerSpectra(1, 192000).points(), 16384u);
}

TEST(PowerSpectra, ForgottenSamplesDoNotChangeLaterWindows)
{
    tarn::PowerSpectra whole(1, 48000);
    tarn::PowerSpectra forgetful(1, 48000);
    std::minstd_rand random(1);
    for (std::uint64_t frame = 0; frame < 20000; ++frame) {
        const float sample = static_cast<float>(random()) * 0x1p-31f - 0.5f;
        whole.append(0, sample);
        forgetful.append(0, sample);
        if (frame == 12000) forgetful.forgetBefore(9000);
    }
    whole.transform(9000);
    forgetful.transform(9000);
    for (std::size_t bin = 0; bin < whole.bins(); ++bin) EXPECT_EQ(whole.power(0)[bin], forgetful.power(0)[bin]);
}
