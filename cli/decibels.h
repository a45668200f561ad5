// Decibels of amplitude and energy ratios.
// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>

namespace tarn
{

/// Decibels of a ratio of amplitudes; minus infinity for zero.
inline double decibels(double ratio) noexcept
{
    return 20.0 * std::log10(ratio);
}

/// Decibels of a ratio of energies; minus infinity for zero.
inline double energyDecibels(double ratio) noexcept
{
    return 10.0 * std::log10(ratio);
}

} // namespace tarn
