// Logarithms from the bits of a number, and their histogram.
// SPDX-License-Identifier: MIT
#include "picture/levels.h"

#include <algorithm>
#include <bit>

namespace tarn
{

float levelOf(float power) noexcept
{
    if (power < 1e-20f) return kSilentDb;
    const auto bits = std::bit_cast<std::uint32_t>(power);
    const auto exponent = static_cast<float>(static_cast<int>(bits >> 23) - 127);
    const auto mantissa = std::bit_cast<float>((bits & 0x007fffffU) | 0x3f800000U); // 1 to 2
    // log2(m) = 2 / ln 2 * (t + t^3 / 3 + t^5 / 5 + ...), t = (m - 1) / (m + 1), at most 1/3.
    const float t = (mantissa - 1.0f) / (mantissa + 1.0f);
    const float square = t * t;
    const float series = t * (1.0f + square * (0.33333333f + square * (0.2f + square * 0.14285714f)));
    return 3.0103f * (exponent + 2.8853901f * series);
}

void LevelHistogram::add(float power) noexcept
{
    const float level = levelOf(power);
    if (level < kLowestDb) return;
    const auto step = static_cast<std::size_t>((level - kLowestDb) / kStepDb);
    ++counts[std::min(step, counts.size() - 1)];
    ++total;
}

float LevelHistogram::exceededBy(double share) const noexcept
{
    if (total == 0) return kSilentDb;
    const auto above = static_cast<std::uint64_t>(share * static_cast<double>(total));
    std::uint64_t seen = 0;
    std::size_t step = counts.size();
    while (step > 0 && seen <= above) seen += counts[--step];
    return kLowestDb + kStepDb * static_cast<float>(step + 1);
}

} // namespace tarn
