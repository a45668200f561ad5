// The colour of a sound: its hue tells the place, its lightness the level.
// SPDX-License-Identifier: MIT
#include "cli/meter_colour.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace tarn
{

namespace
{

constexpr double kLeftHue = 252.0; ///< degrees
constexpr double kWideHue = 328.0;
constexpr double kRightHue = 412.0;     ///< 52 after a full turn
constexpr double kSideLightness = 0.79; ///< of the loudest sound
constexpr double kCentreLightness = 0.95;
constexpr double kSideChroma = 0.19;

using Linear = std::array<double, 3>; ///< red, green and blue, linear in intensity

/// The colour of OKLab (B. Ottosson, A perceptual color space for image processing, 2020) in linear sRGB.
Linear linearOf(double lightness, double a, double b) noexcept
{
    const auto cubed = [](double value) { return value * value * value; };
    const double l = cubed(lightness + 0.3963377774 * a + 0.2158037573 * b);
    const double m = cubed(lightness - 0.1055613458 * a - 0.0638541728 * b);
    const double s = cubed(lightness - 0.0894841775 * a - 1.2914855480 * b);
    return {4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s,
            -1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s,
            -0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s};
}

bool isInGamut(const Linear& colour) noexcept
{
    return std::all_of(colour.begin(), colour.end(), [](double part) { return part >= 0.0 && part <= 1.0; });
}

/// The 8-bit value of sRGB.
std::uint8_t encoded(double linear) noexcept
{
    const double part = std::clamp(linear, 0.0, 1.0);
    const double value = part <= 0.0031308 ? 12.92 * part : 1.055 * std::pow(part, 1.0 / 2.4) - 0.055;
    return static_cast<std::uint8_t>(std::lround(255.0 * value));
}

} // namespace

Rgb placeColour(double left, double centre, double right, double level) noexcept
{
    const double sum = left + centre + right;
    if (sum <= 0.0 || level <= 0.0) return {};
    const double sides = left + right;
    const double rightShare = sides > 0.0 ? right / sides : 0.5;
    const double hue = rightShare < 0.5 ? kLeftHue + 2.0 * rightShare * (kWideHue - kLeftHue)
                                        : kWideHue + (2.0 * rightShare - 1.0) * (kRightHue - kWideHue);
    const double radians = hue * std::numbers::pi / 180.0;
    const double centreShare = centre / sum;
    const double lightness =
        std::min(level, 1.0) * (kSideLightness + centreShare * (kCentreLightness - kSideLightness));
    double chroma = kSideChroma * (1.0 - centreShare);
    const auto colourAt = [&] { return linearOf(lightness, chroma * std::cos(radians), chroma * std::sin(radians)); };
    while (!isInGamut(colourAt()) && chroma > 0.001) chroma *= 0.97;
    const Linear colour = colourAt();
    return {encoded(colour[0]), encoded(colour[1]), encoded(colour[2])};
}

int cubeColour(Rgb colour) noexcept
{
    constexpr int kSteps[] = {0, 95, 135, 175, 215, 255};
    const auto stepOf = [&](int part) {
        const auto* const nearest = std::min_element(std::begin(kSteps), std::end(kSteps), [part](int a, int b) {
            return std::abs(a - part) < std::abs(b - part);
        });
        return static_cast<int>(nearest - std::begin(kSteps));
    };
    return 16 + 36 * stepOf(colour.red) + 6 * stepOf(colour.green) + stepOf(colour.blue);
}

} // namespace tarn
