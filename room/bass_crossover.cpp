// A crossover that keeps the bass in the fronts, and the LFE channel.
// SPDX-License-Identifier: MIT
#include "room/bass_crossover.h"

#include <algorithm>

namespace zrk_tarn
{

namespace
{

/// tan(pi f / rate) for both frequencies. Literals, because the tangent of C libraries differs in the last bit.
struct Tangents
{
    std::uint32_t sampleRateHz;
    double at120Hz;
    double at160Hz;
};

constexpr Tangents kTangents[] = {
    {32000, 0.011781517513428989, 0.015709255323664916},    {44100, 0.008548759680676187, 0.011398562207140327},
    {48000, 0.007854143128983589, 0.01047235832229719},     {64000, 0.005890554355452355, 0.0078541431289835902},
    {88200, 0.004274301748891188, 0.0056990959926574388},   {96000, 0.0039270110034898085, 0.0052360356057001272},
    {192000, 0.0019634979317947675, 0.0026179998591569433},
};

constexpr double kSqrt2 = 1.4142135623730951;

const Tangents& tangentsOf(std::uint32_t sampleRateHz) noexcept
{
    for (const Tangents& tangents : kTangents)
        if (tangents.sampleRateHz == sampleRateHz) return tangents;
    return kTangents[0];
}

/// The coefficients of a filter; b2 is b0.
struct Coefficients
{
    double b0, b1, a1, a2;
};

/// The filters of a frequency.
struct Sections
{
    Coefficients lowPass;
    Coefficients highPass;
};

/// Butterworth filters of 2nd order by the bilinear transform.
///
/// k  tan(pi frequency / rate)
Sections designSections(double k) noexcept
{
    const double norm = 1.0 / (1.0 + kSqrt2 * k + k * k);
    const double a1 = 2.0 * (k * k - 1.0) * norm;
    const double a2 = (1.0 - kSqrt2 * k + k * k) * norm;
    return {.lowPass = {k * k * norm, 2.0 * (k * k) * norm, a1, a2}, .highPass = {norm, -2.0 * norm, a1, a2}};
}

/// Sets the coefficients of filters.
void setFilters(BassFilters& filters, std::size_t first, std::size_t count, const Coefficients& coefficients) noexcept
{
    for (std::size_t i = first; i < first + count; ++i) {
        filters.b0[i] = coefficients.b0;
        filters.b1[i] = coefficients.b1;
        filters.a1[i] = coefficients.a1;
        filters.a2[i] = coefficients.a2;
    }
}

void clear(BassFilters& filters) noexcept
{
    for (std::size_t section = 0; section < 2; ++section) {
        std::fill_n(filters.first[section], BassFilters::kMaxFilters, 0.0);
        std::fill_n(filters.second[section], BassFilters::kMaxFilters, 0.0);
    }
}

} // namespace

BassCrossover::BassCrossover(std::uint32_t sampleRateHz) noexcept
{
    const Sections crossover = designSections(tangentsOf(sampleRateHz).at120Hz);
    setFilters(outputs, BassFilters::kFronts, 2, crossover.lowPass);
    setFilters(outputs, BassFilters::kFronts + 2, 2, crossover.highPass);
    setFilters(outputs, BassFilters::kCentre, 1, crossover.highPass);
    setFilters(outputs, BassFilters::kSurrounds, 4, designSections(tangentsOf(sampleRateHz).at160Hz).highPass);
    setFilters(lfe, 0, 1, crossover.lowPass);
}

void BassCrossover::reset() noexcept
{
    clear(outputs);
    clear(lfe);
}

void BassCrossover::beginBlock(bool isOn) noexcept
{
    const bool wasOff = isOff();
    share.beginBlock(isOn ? 1.0f : 0.0f);
    if (wasOff && !isOff()) clear(outputs);
}

void BassCrossover::moveToFronts(const RowOperations& operations, const Row& left, const Row& right,
                                 UnroundedRow* fronts, UnroundedRow* surrounds, std::size_t count) noexcept
{
    operations.moveBass(outputs, {left, right, fronts, surrounds, count, share.row(), !share.isSteadyAt(1.0f)});
}

void BassCrossover::addBass(const RowOperations& operations, const Row& left, const Row& right,
                            UnroundedRow& sum) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i)
        sum[i] = static_cast<double>(left[i]) + static_cast<double>(right[i]);
    operations.filter(lfe, sum);
}

} // namespace zrk_tarn
