// Gains in decibels, for user interfaces.
// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>

namespace zrk_tarn
{

/// The ranges that user interfaces offer.
inline constexpr double kMinGainDb = -60.0;
inline constexpr double kMaxGainDb = 18.0;
inline constexpr double kMaxChannelGainDb = 12.0; ///< of the centre and of the surround channels

/// The factor for the gains of UpmixStream; NaN for NaN.
inline float gainFactor(double decibels) noexcept
{
    return static_cast<float>(std::pow(10.0, decibels / 20.0));
}

} // namespace zrk_tarn
