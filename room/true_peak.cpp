// The window of the limiter and its true peak.
// SPDX-License-Identifier: MIT
#include "room/true_peak.h"

#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr int kWidth = kVectorFloats;
constexpr int kTaps = 12;
constexpr int kFrames = static_cast<int>(kBlockFrames);

/// ITU-R BS.1770-4, annex 2, table of the interpolation filter, as multiples of 2^-13.
constexpr float kTap[4][kTaps] = {
    {14, 90, -161, 272, -487, 1125, 7964, -838, 390, -218, 122, -68},
    {-239, 240, -424, 730, -1364, 3810, 6388, -1641, 832, -477, 271, -155},
    {-155, 271, -477, 832, -1641, 6388, 3810, -1364, 730, -424, 240, -239},
    {-68, 122, -218, 390, -838, 7964, 1125, -487, 272, -161, 90, 14},
};
constexpr float kTapScale = 0x1p-13f;

/// More than the sum of the magnitudes of any phase, so no interpolated value exceeds the samples by more.
constexpr float kMaxGain = 2.1f;

float largestOf(const Floats<kWidth>& values) noexcept
{
    float each[kWidth];
    store(each, values);
    float largest = 0.0f;
    for (const float value : each) largest = largest < value ? value : largest;
    return largest;
}

/// Whether values between samples of these magnitudes can reach the floor.
bool canReach(float floor, const Floats<kWidth>& magnitudes) noexcept
{
    return any(broadcast<kWidth>(floor) <= magnitudes * broadcast<kWidth>(kMaxGain));
}

/// The largest magnitudes of all samples of a row, in any lanes.
Floats<kWidth> samplePeaks(const float (&samples)[PeakWindow::kBefore + kBlockFrames]) noexcept
{
    constexpr int kCount = static_cast<int>(PeakWindow::kBefore) + kFrames;
    Floats<kWidth> largest = abs(load<kWidth>(samples + kCount - kWidth));
    for (int n = 0; n < kCount - kWidth; n += kWidth) largest = larger(abs(load<kWidth>(samples + n)), largest);
    return largest;
}

/// The largest magnitudes between the samples around the positions n to n + kWidth - 1.
Floats<kWidth> interpolatedPeaks(const float* samples) noexcept
{
    Floats<kWidth> largest = broadcast<kWidth>(0.0f);
    for (const float(&taps)[kTaps] : kTap) {
        Floats<kWidth> sum = broadcast<kWidth>(0.0f);
        for (int tap = 0; tap < kTaps; ++tap)
            sum = sum + load<kWidth>(samples + tap) * broadcast<kWidth>(taps[tap] * kTapScale);
        largest = larger(abs(sum), largest);
    }
    return largest;
}

} // namespace

void advancePeakWindow(PeakWindow& window, const UnroundedRow* rows, std::size_t count, double scale) noexcept
{
    constexpr int kDoubles = kVectorBytes == 64 ? 8 : 4;
    for (std::size_t row = 0; row < count; ++row) {
        float* const samples = window.samples[row];
        for (std::size_t i = 0; i < PeakWindow::kBefore; ++i) samples[i] = samples[kBlockFrames + i];
        for (std::size_t i = 0; i < kBlockFrames; i += std::size_t{kDoubles})
            store(samples + PeakWindow::kBefore + i,
                  toFloat(load<kDoubles>(rows[row] + i) * broadcast<kDoubles>(scale)));
    }
}

float findTruePeak(const PeakWindow& window, std::int32_t rows, float floor) noexcept
{
    Floats<kWidth> largest = broadcast<kWidth>(0.0f);
    for (std::int32_t row = 0; row < rows; ++row) {
        const auto& samples = window.samples[row];
        const Floats<kWidth> peaks = samplePeaks(samples);
        largest = larger(peaks, largest);
        if (!canReach(floor, peaks)) continue;
        for (int n = 0; n < kFrames; n += kWidth) {
            // Most positions are far below the floor.
            Floats<kWidth> near = abs(load<kWidth>(samples + n));
            for (int tap = 1; tap < kTaps; ++tap) near = larger(abs(load<kWidth>(samples + n + tap)), near);
            if (canReach(floor, near)) largest = larger(interpolatedPeaks(samples + n), largest);
        }
    }
    return largestOf(largest);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
