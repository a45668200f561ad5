// The sample rates that the engine supports.
#pragma once

#include <cstdint>

namespace zrk_tarn
{

inline constexpr std::uint32_t kSupportedRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};

/// Whether the engine supports a sample rate.
constexpr bool isSupportedRate(std::uint32_t rateHz) noexcept
{
    for (const std::uint32_t supportedHz : kSupportedRatesHz)
        if (supportedHz == rateHz) return true;
    return false;
}

} // namespace zrk_tarn
