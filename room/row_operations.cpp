// Arithmetic on rows of a block. Most loops have no branches, so that compilers vectorise them.
// SPDX-License-Identifier: MIT
#include "room/row_operations.h"

#include "lanes/lanes.h"

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

void amplify(const UnroundedRow& gains, double factor, const float (&samples)[kBlockFrames],
             UnroundedRow& values) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) values[i] = gains[i] * factor * static_cast<double>(samples[i]);
}

void multiply(const UnroundedRow& a, const UnroundedRow& b, UnroundedRow& products) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) products[i] = a[i] * b[i];
}

std::uint64_t round(const UnroundedRow& values, double limit, Row& samples) noexcept
{
    constexpr int kWidth = kVectorBytes == 64 ? 8 : 4;
    const auto lowest = broadcast<kWidth>(-limit);
    const auto highest = broadcast<kWidth>(limit - 1.0);
    Doubles<kWidth> largest = broadcast<kWidth>(0.0);
    for (std::size_t i = 0; i < kBlockFrames; i += std::size_t{kWidth}) {
        const Doubles<kWidth> given = load<kWidth>(values + i);
        const Doubles<kWidth> rounded = given + withSignOf(given, broadcast<kWidth>(0.5));
        largest = larger(abs(rounded), largest);
        store(samples + i, truncated(larger(smaller(rounded, highest), lowest)));
    }
    if (!any(broadcast<kWidth>(limit) <= largest)) return 0;
    std::uint64_t saturated = 0;
    for (const double value : values) {
        const double rounded = value + (value < 0.0 ? -0.5 : 0.5);
        saturated += rounded >= limit || rounded <= -limit - 1.0 ? 1u : 0u;
    }
    return saturated;
}

} // namespace

extern const RowOperations kRowOperations = {.widen = widen,
                                             .amplify = amplify,
                                             .multiply = multiply,
                                             .round = round,
                                             .moveBass = moveBass,
                                             .filter = filterRow};

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
