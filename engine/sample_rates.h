// The sample rates that the engine supports.
// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace zrk_tarn
{

inline constexpr std::uint32_t kSupportedRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};

/// Whether the engine supports a sample rate.
constexpr bool isSupportedRate(std::uint32_t rateHz) noexcept
{
    return std::find(std::begin(kSupportedRatesHz), std::end(kSupportedRatesHz), rateHz) != std::end(kSupportedRatesHz);
}

} // namespace zrk_tarn
