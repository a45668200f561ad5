// A limiter that keeps the true peak of all outputs below full scale.
// SPDX-License-Identifier: MIT
#include "room/limiter.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace zrk_tarn
{

namespace
{

constexpr double kReleaseSeconds = 0.1;
constexpr double kHoldSeconds = 0.02; ///< half a period at 25 Hz

/// Gains this near to 1 (0.004 dB) become 1, so that samples are exact again.
constexpr double kNearOne = 1.0 - 0x1p-11;

/// The gain at the end of a block reaches its value some frames before, because a peak between two blocks is only found
/// in the later one.
constexpr std::size_t kSettledFrames = 6;
constexpr std::size_t kRampFrames = kBlockFrames - kSettledFrames;

/// The part of the way from the gain at the start of a block to that at its end, for each frame.
constexpr auto kRamp = [] {
    std::array<double, kBlockFrames> parts{};
    for (std::size_t i = 0; i < kBlockFrames; ++i)
        parts[i] = i + 1 < kRampFrames ? static_cast<double>(i + 1) / kRampFrames : 1.0;
    return parts;
}();

} // namespace

Limiter::Limiter(std::uint32_t sampleRateHz, double fullScale) noexcept
    : scale(1.0 / fullScale),
      release(static_cast<double>(kBlockFrames) / (kReleaseSeconds * sampleRateHz)),
      heldBlocks(2 + static_cast<std::size_t>(kHoldSeconds * sampleRateHz / kBlockFrames))
{
    std::fill_n(needed, kMaxHeldBlocks, 1.0);
}

void Limiter::reset() noexcept
{
    window = {};
    for (auto& rows : blocks)
        for (UnroundedRow& row : rows) std::fill_n(row, kBlockFrames, 0.0);
    std::fill_n(needed, kMaxHeldBlocks, 1.0);
    oldest = 0;
    smallestNeeded = 1.0;
    startGain = endGain = 1.0;
}

UnroundedRow (&Limiter::process(std::size_t count, double truePeak) noexcept)[kRows]
{
    const double released = needed[oldest];
    needed[oldest] = truePeak > kCeiling ? kCeiling / truePeak : 1.0;
    // Searches the ring only if its smallest gain has left it.
    if (needed[oldest] <= smallestNeeded) {
        smallestNeeded = needed[oldest];
    } else if (released == smallestNeeded) {
        smallestNeeded = *std::min_element(needed, needed + heldBlocks);
    }
    oldest = (oldest + 1) % heldBlocks;
    const double recovered = endGain + (1.0 - endGain) * release;
    startGain = endGain;
    endGain = std::min(smallestNeeded, recovered > kNearOne ? 1.0 : recovered);

    newest = 1 - newest;
    UnroundedRow(&rows)[kRows] = blocks[newest];
    if (startGain == 1.0 && endGain == 1.0) return rows;
    UnroundedRow factors;
    for (std::size_t i = 0; i < kBlockFrames; ++i) factors[i] = startGain + (endGain - startGain) * kRamp[i];
    for (std::size_t row = 0; row < count; ++row)
        for (std::size_t i = 0; i < kBlockFrames; ++i) rows[row][i] *= factors[i];
    return rows;
}

} // namespace zrk_tarn
