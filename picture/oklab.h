// The colour space OKLab and its conversion from and to linear sRGB.
// SPDX-License-Identifier: MIT
#pragma once

namespace tarn
{

/// A colour of linear sRGB; components from 0 to 1 are in the gamut.
struct LinearRgb
{
    double red = 0.0;
    double green = 0.0;
    double blue = 0.0;
};

/// A colour of OKLab (B. Ottosson, "A perceptual color space for image processing", 2020), from black, 0, to white, 1.
struct Oklab
{
    double lightness = 0.0;
    double greenRed = 0.0;   ///< a
    double blueYellow = 0.0; ///< b
};

LinearRgb linearRgbOf(const Oklab& colour) noexcept;
Oklab oklabOf(const LinearRgb& colour) noexcept;

/// The distance of two colours, multiplied by 100.
double distanceOf(const Oklab& one, const Oklab& other) noexcept;

} // namespace tarn
