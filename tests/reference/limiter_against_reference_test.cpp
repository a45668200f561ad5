// Compares the limiter with a literal one that has the whole signal, sample by sample; its distortion and true peak.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "room/limiter.h"
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

// ITU-R BS.1770-4, annex 2. Phases 2 and 3 are phases 1 and 0 reversed.
constexpr float kPhases[2][12] = {
    {0.0017089843750f, 0.0109863281250f, -0.0196533203125f, 0.0332031250000f, -0.0594482421875f, 0.1373291015625f,
     0.9721679687500f, -0.1022949218750f, 0.0476074218750f, -0.0266113281250f, 0.0148925781250f, -0.0083007812500f},
    {-0.0291748046875f, 0.0292968750000f, -0.0517578125000f, 0.0891113281250f, -0.1665039062500f, 0.4650878906250f,
     0.7797851562500f, -0.2003173828125f, 0.1015625000000f, -0.0582275390625f, 0.0330810546875f, -0.0189208984375f}};

/// Sample i of a row, silence before it; full scale 1.
float sampleAt(const std::vector<double>& row, std::ptrdiff_t i)
{
    return i < 0 ? 0.0f : static_cast<float>(row[static_cast<std::size_t>(i)] / kFullScale);
}

/// The true peak of all rows for the block from a frame on.
double truePeakOf(const Rows& rows, std::size_t first)
{
    float peak = 0.0f;
    for (const std::vector<double>& row : rows) {
        for (std::ptrdiff_t i = 0; i < 64; ++i) {
            const auto oldest = static_cast<std::ptrdiff_t>(first) + i - 11;
            for (int phase = 0; phase < 4; ++phase) {
                float sum = 0.0f;
                for (int tap = 0; tap < 12; ++tap)
                    sum +=
                        sampleAt(row, oldest + tap) * (phase < 2 ? kPhases[phase][tap] : kPhases[3 - phase][11 - tap]);
                peak = std::max(peak, std::fabs(sum));
            }
            for (int tap = 0; tap < 12; ++tap) peak = std::max(peak, std::fabs(sampleAt(row, oldest + tap)));
        }
    }
    return static_cast<double>(peak);
}

/// The rows one block later, limited.
Rows limitedLiterally(const Rows& rows)
{
    Rows output(rows.size(), std::vector<double>(rows[0].size()));
    const double ceiling = 0.89125094;
    std::vector<double> needed; ///< of every block from the first on
    double gain = 1.0;
    for (std::size_t first = 0; first < rows[0].size(); first += kBlock) {
        const double peak = truePeakOf(rows, first);
        needed.push_back(peak >= static_cast<double>(static_cast<float>(ceiling)) && peak > ceiling ? ceiling / peak
                                                                                                    : 1.0);
        double target = gain + (1.0 - gain) * (64.0 / (0.1 * kRateHz));
        if (target > 1.0 - 0x1p-11) target = 1.0;
        // The block that comes out now is the last but one. 20 ms are 15 blocks of 64 frames.
        for (std::size_t age = 0; age < 17 && age < needed.size(); ++age)
            target = std::min(target, needed[needed.size() - 1 - age]);
        for (std::size_t row = 0; row < rows.size() && first > 0; ++row)
            for (std::size_t i = 0; i < kBlock; ++i) {
                const double part = i >= 57 ? 1.0 : static_cast<double>(i + 1) / 58.0;
                const double value = rows[row][first - kBlock + i];
                output[row][first + i] = gain == 1.0 && target == 1.0 ? value : value * (gain + (target - gain) * part);
            }
        gain = target;
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
        UnroundedRow block[Limiter::kRows]{};
        for (std::size_t row = 0; row < rows.size(); ++row)
            std::copy_n(rows[row].begin() + static_cast<std::ptrdiff_t>(first), kBlock, block[row]);
        const float peak =
            operations.findTruePeak(limiter.peakWindowOf(block, rows.size()), static_cast<std::int32_t>(rows.size()),
                                    static_cast<float>(Limiter::kCeiling));
        limiter.process(block, rows.size(), static_cast<double>(peak));
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
