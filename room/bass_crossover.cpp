// A crossover that keeps the bass in the fronts, and the LFE channel.
// SPDX-License-Identifier: MIT
#include "room/bass_crossover.h"

#include <algorithm>

namespace zrk_tarn
{

namespace
{

/// tan(pi 120 Hz / rate). A literal, because the tangent of C libraries differs in the last bit.
struct Tangent
{
    std::uint32_t sampleRateHz;
    double value;
};

constexpr Tangent kTangents[] = {
    {32000, 0.011781517513428989},   {44100, 0.008548759680676187}, {48000, 0.007854143128983589},
    {64000, 0.005890554355452355},   {88200, 0.004274301748891188}, {96000, 0.0039270110034898085},
    {192000, 0.0019634979317947675},
};

constexpr double kSqrt2 = 1.4142135623730951;
constexpr double kHalfPower = 0.70710678118654752; // sqrt(1/2)

/// States below it become 0. They are inaudible and would decay to subnormal numbers, which are slow.
constexpr double kTrace = 0x1p-60;

const Glide kAlwaysOn{1.0f};

double tangentOf(std::uint32_t sampleRateHz) noexcept
{
    for (const Tangent& tangent : kTangents)
        if (tangent.sampleRateHz == sampleRateHz) return tangent.value;
    return kTangents[0].value;
}

} // namespace

BassCrossover::BassCrossover(std::uint32_t sampleRateHz) noexcept
{
    // Butterworth filters of 2nd order by the bilinear transform.
    const double k = tangentOf(sampleRateHz);
    const double norm = 1.0 / (1.0 + kSqrt2 * k + k * k);
    const double a1 = 2.0 * (k * k - 1.0) * norm;
    const double a2 = (1.0 - kSqrt2 * k + k * k) * norm;
    lowPass = {k * k * norm, 2.0 * (k * k) * norm, k * k * norm, a1, a2};
    highPass = {norm, -2.0 * norm, norm, a1, a2};
}

void BassCrossover::reset() noexcept
{
    stereo = fronts = behind = lfe = {};
}

void BassCrossover::beginBlock(bool isOn) noexcept
{
    const bool wasOff = isOff();
    share.beginBlock(isOn ? 1.0f : 0.0f);
    if (wasOff && !isOff()) stereo = fronts = behind = {};
}

void BassCrossover::moveToFronts(const Row& left, const Row& right, UnroundedRow (&rows)[kRows]) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        bass[0][i] = kHalfPower * static_cast<double>(left[i]);
        bass[1][i] = kHalfPower * static_cast<double>(right[i]);
    }
    stereo.filterBlock(lowPass, kAlwaysOn, bass);
    fronts.filterBlock(highPass, share, rows);
    for (std::size_t side = 0; side < 2; ++side)
        for (std::size_t i = 0; i < kBlockFrames; ++i) rows[side][i] += share.at(i) * bass[side][i];
}

void BassCrossover::removeFrom(UnroundedRow (&surrounds)[kRows]) noexcept
{
    behind.filterBlock(highPass, share, surrounds);
}

void BassCrossover::addBass(const Row& left, const Row& right, UnroundedRow& sum) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        bass[0][i] = static_cast<double>(left[i]) + static_cast<double>(right[i]);
        bass[1][i] = 0.0;
    }
    lfe.filterBlock(lowPass, kAlwaysOn, bass);
    std::copy_n(bass[0], kBlockFrames, sum);
}

/// In the transposed direct form II.
void BassCrossover::Filters::filterBlock(const Coefficients& c, const Glide& wetShare,
                                         UnroundedRow (&rows)[kRows]) noexcept
{
    const bool isFading = !wetShare.isSteadyAt(1.0f);
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        double samples[kRows];
        for (std::size_t row = 0; row < kRows; ++row) samples[row] = rows[row][i];
        for (int section = 0; section < 2; ++section) {
            for (std::size_t row = 0; row < kRows; ++row) {
                const double x = samples[row];
                const double y = c.b0 * x + first[section][row];
                first[section][row] = c.b1 * x - c.a1 * y + second[section][row];
                second[section][row] = c.b2 * x - c.a2 * y;
                samples[row] = y;
            }
        }
        for (std::size_t row = 0; row < kRows; ++row) {
            if (isFading) samples[row] = rows[row][i] + wetShare.at(i) * (samples[row] - rows[row][i]);
            rows[row][i] = samples[row];
        }
    }
    for (int section = 0; section < 2; ++section) {
        for (std::size_t row = 0; row < kRows; ++row) {
            if (__builtin_fabs(first[section][row]) < kTrace) first[section][row] = 0.0;
            if (__builtin_fabs(second[section][row]) < kTrace) second[section][row] = 0.0;
        }
    }
}

} // namespace zrk_tarn
