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
constexpr double kHalfPower = 0.70710678118654752; // sqrt(1/2)

/// States below it become 0. They are inaudible and would decay to subnormal numbers, which are slow.
constexpr double kTrace = 0x1p-60;

const Tangents& tangentsOf(std::uint32_t sampleRateHz) noexcept
{
    for (const Tangents& tangents : kTangents)
        if (tangents.sampleRateHz == sampleRateHz) return tangents;
    return kTangents[0];
}

} // namespace

/// Butterworth filters of 2nd order by the bilinear transform.
///
/// k  tan(pi frequency / rate)
BassCrossover::Sections BassCrossover::designSections(double k) noexcept
{
    const double norm = 1.0 / (1.0 + kSqrt2 * k + k * k);
    const double a1 = 2.0 * (k * k - 1.0) * norm;
    const double a2 = (1.0 - kSqrt2 * k + k * k) * norm;
    const auto coefficients = [&](double b0, double b1) {
        return Coefficients{Pair{b0, b0}, Pair{b1, b1}, Pair{a1, a1}, Pair{a2, a2}};
    };
    return {.lowPass = coefficients(k * k * norm, 2.0 * (k * k) * norm), .highPass = coefficients(norm, -2.0 * norm)};
}

BassCrossover::BassCrossover(std::uint32_t sampleRateHz) noexcept
    : crossover(designSections(tangentsOf(sampleRateHz).at120Hz)),
      highPassBehind(designSections(tangentsOf(sampleRateHz).at160Hz).highPass)
{}

void BassCrossover::reset() noexcept
{
    clearCrossover();
    lfe[0] = {};
}

void BassCrossover::clearCrossover() noexcept
{
    for (FilterPair& filters : fronts) filters = {};
    for (FilterPair& filters : behind) filters = {};
}

void BassCrossover::beginBlock(bool isOn) noexcept
{
    const bool wasOff = isOff();
    share.beginBlock(isOn ? 1.0f : 0.0f);
    if (wasOff && !isOff()) clearCrossover();
}

void BassCrossover::moveToFronts(const Row& left, const Row& right, UnroundedRow (&rows)[kRows]) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        bass[0][i] = kHalfPower * static_cast<double>(left[i]);
        bass[1][i] = kHalfPower * static_cast<double>(right[i]);
    }
    beginFade(rows);
    filterBlock<3>({&crossover.lowPass, &crossover.highPass, &crossover.highPass}, fronts,
                   {{&bass[0], &bass[1]}, {&rows[0], &rows[1]}, {&rows[2], &rows[2]}});
    finishFade(rows);
    for (std::size_t side = 0; side < 2; ++side)
        for (std::size_t i = 0; i < kBlockFrames; ++i) rows[side][i] += share.at(i) * bass[side][i];
}

void BassCrossover::removeFrom(UnroundedRow (&surrounds)[kRows], std::int32_t count) noexcept
{
    beginFade(surrounds);
    if (count == 2) {
        filterBlock<1>({&highPassBehind}, behind, {{&surrounds[0], &surrounds[1]}});
    } else {
        filterBlock<2>({&highPassBehind, &highPassBehind}, behind,
                       {{&surrounds[0], &surrounds[1]}, {&surrounds[2], &surrounds[3]}});
    }
    finishFade(surrounds);
}

void BassCrossover::addBass(const Row& left, const Row& right, UnroundedRow& sum) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i)
        sum[i] = static_cast<double>(left[i]) + static_cast<double>(right[i]);
    filterBlock<1>({&crossover.lowPass}, lfe, {{&sum, &sum}});
}

/// Keeps the rows for finishFade.
void BassCrossover::beginFade(const UnroundedRow (&rows)[kRows]) noexcept
{
    if (isFading()) std::copy_n(&rows[0][0], kRows * kBlockFrames, &plain[0][0]);
}

/// Fades from the rows before the filters to those after them.
void BassCrossover::finishFade(UnroundedRow (&rows)[kRows]) const noexcept
{
    if (!isFading()) return;
    for (std::size_t row = 0; row < kRows; ++row)
        for (std::size_t i = 0; i < kBlockFrames; ++i)
            rows[row][i] = plain[row][i] + share.at(i) * (rows[row][i] - plain[row][i]);
}

/// In the transposed direct form II. A filter is a chain of dependent operations, but the filters do not depend on each
/// other, so a processor computes those of a frame at the same time.
template <std::size_t kPairs>
void BassCrossover::filterBlock(const Coefficients* const (&coefficients)[kPairs], FilterPair* filters,
                                UnroundedRow* const (&rows)[kPairs][2]) noexcept
{
    FilterPair state[kPairs]; // a copy, which compilers keep in registers
    for (std::size_t pair = 0; pair < kPairs; ++pair) state[pair] = filters[pair];
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        for (std::size_t pair = 0; pair < kPairs; ++pair) {
            const Coefficients& c = *coefficients[pair];
            Pair x = {(*rows[pair][0])[i], (*rows[pair][1])[i]};
            for (int section = 0; section < 2; ++section) {
                const Pair scaled = c.b0 * x;
                const Pair y = scaled + state[pair].first[section];
                state[pair].first[section] = c.b1 * x - c.a1 * y + state[pair].second[section];
                state[pair].second[section] = scaled - c.a2 * y;
                x = y;
            }
            (*rows[pair][0])[i] = x[0];
            (*rows[pair][1])[i] = x[1];
        }
    }
    const auto withoutTraces = [](Pair value) { return ((value < kTrace) & (value > -kTrace)) ? Pair{} : value; };
    for (std::size_t pair = 0; pair < kPairs; ++pair) {
        for (int section = 0; section < 2; ++section) {
            filters[pair].first[section] = withoutTraces(state[pair].first[section]);
            filters[pair].second[section] = withoutTraces(state[pair].second[section]);
        }
    }
}

} // namespace zrk_tarn
