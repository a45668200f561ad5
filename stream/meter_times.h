// The time constants of the meters.
// SPDX-License-Identifier: MIT
#pragma once

namespace zrk_tarn
{

inline constexpr double kPeakFallDb = 20.0;     ///< within kPeakFallSeconds
inline constexpr double kPeakFallSeconds = 1.7; ///< IEC 60268-10, type I
inline constexpr double kRmsSeconds = 0.3;

} // namespace zrk_tarn
