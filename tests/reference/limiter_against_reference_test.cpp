// Compares the limiter with that of the reference; its distortion and true peak.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "room/limiter.h"
#include "tests/reference/reference_stream.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace tests
{

namespace
{

using zrk_tarn::Limiter;
using zrk_tarn::UnroundedRow;
using Rows = std::vector<std::vector<double>>; ///< [outputs][frames]

constexpr std::uint32_t kRateHz = 48000;
constexpr double kFullScale = 32768.0;
constexpr std::size_t kBlock = 64;

/// The rows one block later, limited.
Rows limitedLiterally(const Rows& rows)
{
    Rows output(rows.size(), std::vector<double>(rows[0].size()));
    reference::Limiter limiter(kRateHz, kFullScale);
    for (std::size_t first = 0; first < rows[0].size(); first += kBlock) {
        std::vector<reference::Block> block(rows.size());
        const auto at = static_cast<std::ptrdiff_t>(first);
        for (std::size_t row = 0; row < rows.size(); ++row)
            std::copy_n(rows[row].begin() + at, kBlock, block[row].begin());
        limiter.limit(block, false);
        for (std::size_t row = 0; row < rows.size(); ++row)
            std::copy_n(block[row].begin(), kBlock, output[row].begin() + at);
    }
    return output;
}

/// The rows through the limiter.
Rows limited(const Rows& rows)
{
    Rows output(rows.size(), std::vector<double>(rows[0].size()));
    Limiter limiter(kRateHz, kFullScale);
    const auto& operations = zrk_tarn::chosenOperations();
    for (std::size_t first = 0; first < rows[0].size(); first += kBlock) {
        for (std::size_t row = 0; row < rows.size(); ++row)
            std::copy_n(rows[row].begin() + static_cast<std::ptrdiff_t>(first), kBlock, limiter.input()[row]);
        const float peak =
            operations.findTruePeak(limiter.peakWindowOf(rows.size(), operations.advancePeakWindow),
                                    static_cast<std::int32_t>(rows.size()), static_cast<float>(Limiter::kCeiling));
        const UnroundedRow* const block = limiter.process(rows.size(), static_cast<double>(peak));
        for (std::size_t row = 0; row < rows.size(); ++row)
            std::copy_n(block[row], kBlock, output[row].begin() + static_cast<std::ptrdiff_t>(first));
    }
    return output;
}

/// Power of what is left of a signal without its component at a frequency, relative to that component.
///
/// cycles  whole number of periods in the signal
double distortionOf(const std::vector<double>& signal, double cycles)
{
    const auto frames = static_cast<double>(signal.size());
    double sine = 0.0;
    double cosine = 0.0;
    double power = 0.0;
    for (std::size_t i = 0; i < signal.size(); ++i) {
        const double phase = 2.0 * std::numbers::pi * cycles * static_cast<double>(i) / frames;
        sine += signal[i] * std::sin(phase) * 2.0 / frames;
        cosine += signal[i] * std::cos(phase) * 2.0 / frames;
        power += signal[i] * signal[i] / frames;
    }
    const double tone = (sine * sine + cosine * cosine) / 2.0;
    return std::max(power - tone, 0.0) / tone;
}

/// The largest magnitude of a signal and of 7 values between each two samples, by 64 samples of a windowed sinc.
double longFilterPeakOf(const std::vector<double>& signal)
{
    constexpr std::ptrdiff_t kHalf = 32;
    double peak = 0.0;
    for (int phase = 0; phase < 8; ++phase) {
        double taps[2 * kHalf];
        for (std::ptrdiff_t tap = 0; tap < 2 * kHalf; ++tap) {
            const double x = static_cast<double>(tap - kHalf + 1) - phase / 8.0;
            const double window = 0.5 + 0.5 * std::cos(std::numbers::pi * x / (kHalf + 1));
            taps[tap] = x == 0.0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x) * window;
        }
        for (std::size_t i = 2 * kHalf; i < signal.size(); ++i) {
            double sum = 0.0;
            for (std::size_t tap = 0; tap < 2 * kHalf; ++tap) sum += taps[tap] * signal[i - 2 * kHalf + tap];
            peak = std::max(peak, std::fabs(sum));
        }
    }
    return peak;
}

/// Noise whose level moves from far below full scale to 12 dB above it and back.
Rows swellingNoise(std::size_t rows, std::size_t frames, Random& random)
{
    Rows noise(rows, std::vector<double>(frames));
    for (std::vector<double>& row : noise)
        for (std::size_t i = 0; i < frames; ++i) {
            const double level = 2.0 + 2.0 * std::sin(static_cast<double>(i) * 2e-4);
            row[i] = std::floor(kFullScale * level * random.uniform());
        }
    return noise;
}

} // namespace

TEST(Limiter, MatchesTheReference)
{
    Random random(20261122);
    for (const std::size_t rows : {1u, 3u, 8u}) {
        const Rows noise = swellingNoise(rows, 64 * 700, random);
        const Rows expected = limitedLiterally(noise);
        const Rows actual = limited(noise);
        for (std::size_t row = 0; row < rows; ++row) ASSERT_EQ(actual[row], expected[row]) << row << " of " << rows;
    }
}

TEST(Limiter, FindsShortPeaksAtEveryPositionOfABlock)
{
    // Equal neighbours below the ceiling, between which the signal exceeds it.
    Rows pulses(1, std::vector<double>(64 * 280));
    for (std::size_t first = 64; first + 1 < pulses[0].size(); first += 4 * 64 + 1)
        pulses[0][first] = pulses[0][first + 1] = 0.8 * kFullScale;
    const Rows expected = limitedLiterally(pulses);
    EXPECT_NE(expected[0][4 * 64 + 65 + 64], 0.8 * kFullScale);
    EXPECT_EQ(limited(pulses)[0], expected[0]);
}

TEST(Limiter, LeavesSamplesBelowTheCeilingAsTheyAre)
{
    Random random(3);
    Rows quiet = swellingNoise(2, 64 * 300, random);
    for (std::vector<double>& row : quiet)
        for (double& sample : row) sample = std::floor(sample / 9.0);
    const Rows output = limited(quiet);
    for (std::size_t row = 0; row < 2; ++row)
        EXPECT_TRUE(std::equal(output[row].begin() + kBlock, output[row].end(), quiet[row].begin()));
}

TEST(Limiter, KeepsEverySampleBelowTheCeilingAndRecovers)
{
    Random random(4);
    Rows loud = swellingNoise(3, 64 * 3000, random);
    for (std::vector<double>& row : loud) std::fill(row.end() - 64 * 1500, row.end(), 100.0);
    const Rows output = limited(loud);
    for (const std::vector<double>& row : output) {
        for (const double sample : row) ASSERT_LE(std::fabs(sample), Limiter::kCeiling * kFullScale * (1.0 + 0x1p-23));
        EXPECT_EQ(row.back(), 100.0);
    }
}

TEST(Limiter, DoesNotDistortBass)
{
    for (const double frequencyHz : {30.0, 60.0, 100.0}) {
        Rows tone(1, std::vector<double>(3 * kRateHz));
        for (std::size_t i = 0; i < tone[0].size(); ++i)
            tone[0][i] = 1.41 * Limiter::kCeiling * kFullScale *
                         std::sin(2.0 * std::numbers::pi * frequencyHz * static_cast<double>(i) / kRateHz);
        const Rows output = limited(tone);
        const std::vector<double> second(output[0].end() - kRateHz, output[0].end());
        EXPECT_LT(10.0 * std::log10(distortionOf(second, frequencyHz)), -100.0) << frequencyHz << " Hz";
    }
}

// The ceiling is -1 dB. The limiter computes four values per sample; between them, a tone of f can be higher by
// -20 log10 cos(pi f / 192 kHz), which is 0.7 dB at 24 kHz and 0.2 dB at 12 kHz. Its 12 taps also lose some of the
// highest frequencies. So noise with few of them stays below -0.8 dB, and white noise below +1 dB.
TEST(Limiter, KeepsTheTruePeakByALongFilterWithinABound)
{
    Random random(5);
    Rows noise = swellingNoise(1, 64 * 1500, random);
    EXPECT_LT(20.0 * std::log10(longFilterPeakOf(limited(noise)[0]) / kFullScale), 1.0) << "white noise";
    // Two averages of two samples each: -3 dB at 17 kHz, nothing at 24 kHz.
    for (int pass = 0; pass < 2; ++pass)
        for (std::size_t i = noise[0].size() - 1; i > 0; --i) noise[0][i] = (noise[0][i] + noise[0][i - 1]) / 2.0;
    EXPECT_LT(20.0 * std::log10(longFilterPeakOf(limited(noise)[0]) / kFullScale), -0.8) << "mostly below 17 kHz";
}

} // namespace tests
