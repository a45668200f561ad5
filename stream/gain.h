// Make-up gain in decibels, for user interfaces.
// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>

namespace zrk_tarn
{

/// The range that user interfaces offer.
inline constexpr double kMinGainDb = -60.0;
inline constexpr double kMaxGainDb = 18.0;

/// The factor for UpmixStream::setMakeUpGain; NaN for NaN.
inline float gainFactor(double decibels) noexcept
{
    return static_cast<float>(std::pow(10.0, decibels / 20.0));
}

} // namespace zrk_tarn
