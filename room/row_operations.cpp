// Arithmetic on rows of a block. Most loops have no branches, so that compilers vectorise them.
// SPDX-License-Identifier: MIT
#include "room/row_operations.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

bool reachesFullScale(const Row& row, double limit) noexcept
{
    const auto lowest = static_cast<std::int32_t>(-limit);
    const auto highest = static_cast<std::int32_t>(limit - 1.0);
    int found = 0;
    for (const std::int32_t sample : row)
        found |= static_cast<int>(sample == lowest) | static_cast<int>(sample == highest);
    return found != 0;
}

bool widen(const Row& samples, double limit, UnroundedRow& values) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) values[i] = static_cast<double>(samples[i]);
    return reachesFullScale(samples, limit);
}

void multiply(const UnroundedRow& a, const UnroundedRow& b, UnroundedRow& products) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) products[i] = a[i] * b[i];
}

void scale(const Row& samples, double factor, UnroundedRow& values) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) values[i] = factor * static_cast<double>(samples[i]);
}

void addProducts(const UnroundedRow& a, const UnroundedRow& b, UnroundedRow& sums) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) sums[i] += a[i] * b[i];
}

std::uint64_t round(const UnroundedRow& values, double limit, Row& samples) noexcept
{
    const double lowest = -limit;
    const double highest = limit - 1.0;
    UnroundedRow rounded;
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        rounded[i] = values[i] + (values[i] < 0.0 ? -0.5 : 0.5);
        const double bounded = rounded[i] < highest ? rounded[i] : highest;
        samples[i] = static_cast<std::int32_t>(bounded < lowest ? lowest : bounded);
    }
    std::uint64_t saturated = 0;
    if (reachesFullScale(samples, limit))
        for (const double value : rounded) saturated += value >= limit || value <= lowest - 1.0 ? 1u : 0u;
    return saturated;
}

} // namespace

extern const RowOperations kRowOperations = {.widen = widen,
                                             .scale = scale,
                                             .multiply = multiply,
                                             .addProducts = addProducts,
                                             .round = round,
                                             .filter = filterRows};

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
