// Tables of hues and chromas, and the colours between them.
// SPDX-License-Identifier: MIT
#include "picture/place_colour.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tarn
{

namespace
{

constexpr double kLeftHue = 252.0; // degrees
constexpr double kWideHue = 328.0;
constexpr double kRightHue = 360.0 + 52.0;
constexpr std::size_t kGammaSteps = 4096;

// Lightness in the dark theme, from silence to the loudest sounds.
constexpr float kDarkest = 0.13f;
constexpr float kLightestSide = 0.78f;
constexpr float kLightestCentre = 0.95f;

// The same in the light theme.
constexpr float kPaper = 0.985f;
constexpr float kDarkestSide = 0.56f;
constexpr float kDarkestCentre = 0.22f;

constexpr float kMaxChroma = 0.19f;
constexpr float kFullChromaLevel = 0.25f;

/// The hue of a place, 0 left to 1 right, in degrees.
double hueOf(double side) noexcept
{
    return side < 0.5 ? std::lerp(kLeftHue, kWideHue, 2.0 * side) : std::lerp(kWideHue, kRightHue, 2.0 * side - 1.0);
}

bool isInGamut(const LinearRgb& colour) noexcept
{
    const auto [low, high] = std::minmax({colour.red, colour.green, colour.blue});
    return low >= 0.0 && high <= 1.0;
}

/// The largest chroma of a hue and a lightness inside sRGB.
double maxChromaOf(double lightness, double a, double b) noexcept
{
    double inside = 0.0;
    double outside = 0.4;
    for (int step = 0; step < 20; ++step) {
        const double chroma = 0.5 * (inside + outside);
        const bool fits =
            isInGamut(linearRgbOf({.lightness = lightness, .greenRed = chroma * a, .blueYellow = chroma * b}));
        (fits ? inside : outside) = chroma;
    }
    return inside;
}

/// The transfer function of sRGB (IEC 61966-2-1).
double gammaOf(double linear) noexcept
{
    return linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
}

/// A smooth step from 0 to 1. It separates values near the middle.
float contrast(float x) noexcept
{
    return x * x * (3.0f - 2.0f * x);
}

} // namespace

Theme themeNamed(std::string_view name) noexcept
{
    return name == "light" ? Theme::Light : Theme::Dark;
}

PlaceColours::PlaceColours(Theme theme) : isDark(theme == Theme::Dark), hues(kHues + 1), gamma(kGammaSteps + 1)
{
    for (std::size_t i = 0; i <= kHues; ++i) {
        const double angle = hueOf(static_cast<double>(i) / kHues) * std::numbers::pi / 180.0;
        hues[i].a = static_cast<float>(std::cos(angle));
        hues[i].b = static_cast<float>(std::sin(angle));
        for (std::size_t k = 0; k <= kLightnesses; ++k)
            hues[i].maxChroma[k] = static_cast<float>(
                maxChromaOf(static_cast<double>(k) / kLightnesses, std::cos(angle), std::sin(angle)));
    }
    for (std::size_t i = 0; i <= kGammaSteps; ++i)
        gamma[i] = static_cast<std::uint8_t>(std::lround(255.0 * gammaOf(static_cast<double>(i) / kGammaSteps)));
}

float PlaceColours::lightnessOf(float centreShare, float level) const noexcept
{
    const float from = isDark ? kDarkest : kPaper;
    const float side = isDark ? kLightestSide : kDarkestSide;
    const float centre = isDark ? kLightestCentre : kDarkestCentre;
    return from + level * (side + centreShare * (centre - side) - from);
}

Oklab PlaceColours::colourOf(const PlaceEnergies& energies, float level) const noexcept
{
    const float sides = energies.left + energies.right;
    const float sum = sides + energies.centre;
    const float centreShare = sum > 0.0f ? contrast(energies.centre / sum) : 0.0f;
    const float side = sides > 0.0f ? contrast(energies.right / sides) : 0.5f;
    const float lightness = lightnessOf(centreShare, level);

    const float rounded = side * static_cast<float>(kHues) + 0.5f;
    const Hue& hue = hues[static_cast<std::size_t>(rounded)];
    const float place = lightness * static_cast<float>(kLightnesses);
    const auto step = std::min(static_cast<std::size_t>(place), kLightnesses - 1);
    const float after = place - static_cast<float>(step);
    const float limit = hue.maxChroma[step] + after * (hue.maxChroma[step + 1] - hue.maxChroma[step]);
    const float strength = std::min(1.0f, level / kFullChromaLevel); // silence has no place
    const float chroma = strength * std::min((1.0f - centreShare) * kMaxChroma, limit);
    return {.lightness = static_cast<double>(lightness),
            .greenRed = static_cast<double>(chroma * hue.a),
            .blueYellow = static_cast<double>(chroma * hue.b)};
}

std::uint32_t PlaceColours::pixelOf(const PlaceEnergies& energies, float level) const noexcept
{
    return pixelOf(colourOf(energies, level));
}

std::uint32_t PlaceColours::pixelOf(const Oklab& colour) const noexcept
{
    const LinearRgb linear = linearRgbOf(colour);
    std::uint32_t pixel = 0;
    for (const double component : {linear.red, linear.green, linear.blue}) {
        const double steps = std::clamp(component, 0.0, 1.0) * static_cast<double>(kGammaSteps) + 0.5;
        pixel = pixel << 8 | gamma[static_cast<std::size_t>(steps)];
    }
    return pixel;
}

} // namespace tarn
