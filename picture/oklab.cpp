// The matrices of OKLab.
// SPDX-License-Identifier: MIT
#include "picture/oklab.h"

#include <cmath>

namespace tarn
{

LinearRgb linearRgbOf(const Oklab& colour) noexcept
{
    const double rootL = colour.lightness + 0.3963377774 * colour.greenRed + 0.2158037573 * colour.blueYellow;
    const double rootM = colour.lightness - 0.1055613458 * colour.greenRed - 0.0638541728 * colour.blueYellow;
    const double rootS = colour.lightness - 0.0894841775 * colour.greenRed - 1.2914855480 * colour.blueYellow;
    const double l = rootL * rootL * rootL;
    const double m = rootM * rootM * rootM;
    const double s = rootS * rootS * rootS;
    return {.red = 4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s,
            .green = -1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s,
            .blue = -0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s};
}

Oklab oklabOf(const LinearRgb& colour) noexcept
{
    const auto [r, g, b] = colour;
    const double l = std::cbrt(0.4122214708 * r + 0.5363325363 * g + 0.0514459929 * b);
    const double m = std::cbrt(0.2119034982 * r + 0.6806995451 * g + 0.1073969566 * b);
    const double s = std::cbrt(0.0883024619 * r + 0.2817188376 * g + 0.6299787005 * b);
    return {.lightness = 0.2104542553 * l + 0.7936177850 * m - 0.0040720468 * s,
            .greenRed = 1.9779984951 * l - 2.4285922050 * m + 0.4505937099 * s,
            .blueYellow = 0.0259040371 * l + 0.7827717662 * m - 0.8086757660 * s};
}

double distanceOf(const Oklab& one, const Oklab& other) noexcept
{
    const double l = one.lightness - other.lightness;
    const double a = one.greenRed - other.greenRed;
    const double b = one.blueYellow - other.blueYellow;
    return 100.0 * std::sqrt(l * l + a * a + b * b);
}

} // namespace tarn
