// Make-up gain in decibels, for whatever sets the gain of a stream.
#pragma once

#include <cmath>

namespace zrk_tarn
{

/// The range that users can choose from.
inline constexpr double kMinGainDb = -60.0;
inline constexpr double kMaxGainDb = 18.0;

/// The factor for UpmixStream::setMakeUpGain; NaN for NaN.
inline float gainFactor(double decibels) noexcept
{
    return static_cast<float>(std::pow(10.0, decibels / 20.0));
}

} // namespace zrk_tarn
