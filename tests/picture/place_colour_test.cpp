// The colours of places, also for readers with colour deficiencies.
// SPDX-License-Identifier: MIT
#include "picture/place_colour.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

using tarn::Oklab;
using tarn::PlaceColours;
using tarn::PlaceEnergies;
using tarn::Theme;

namespace
{

/// What a reader sees, as a matrix on linear sRGB.
struct Reader
{
    const char* name;
    std::array<std::array<double, 3>, 3> matrix;
};

/// Deficiencies of severity 1.0 from Machado, Oliveira and Fernandes, "A Physiologically-based Model for Simulation of
/// Color Vision Deficiency", IEEE Transactions on Visualization and Computer Graphics 15 (2009).
constexpr std::array kReaders{
    Reader{"all colours", {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}},
    Reader{"protanopia",
           {{{0.152286, 1.052583, -0.204868}, {0.114503, 0.786281, 0.099216}, {-0.003882, -0.048116, 1.051998}}}},
    Reader{"deuteranopia",
           {{{0.367322, 0.860646, -0.227968}, {0.280085, 0.672501, 0.047413}, {-0.011820, 0.042940, 0.968881}}}},
    Reader{"tritanopia",
           {{{1.255528, -0.076749, -0.178779}, {-0.078411, 0.930809, 0.147602}, {0.004733, 0.691367, 0.303900}}}}};

Oklab seenBy(const Reader& reader, const Oklab& colour)
{
    const tarn::LinearRgb rgb = tarn::linearRgbOf(colour);
    std::array<double, 3> seen{};
    for (std::size_t row = 0; row < 3; ++row)
        seen[row] = std::clamp(reader.matrix[row][0] * rgb.red + reader.matrix[row][1] * rgb.green +
                                   reader.matrix[row][2] * rgb.blue,
                               0.0, 1.0);
    return tarn::oklabOf({.red = seen[0], .green = seen[1], .blue = seen[2]});
}

constexpr PlaceEnergies kLeft{.left = 1.0f};
constexpr PlaceEnergies kCentre{.centre = 1.0f};
constexpr PlaceEnergies kRight{.right = 1.0f};
constexpr PlaceEnergies kWide{.left = 1.0f, .right = 1.0f};

double chromaOf(const Oklab& colour)
{
    return std::hypot(colour.greenRed, colour.blueYellow);
}

double hueOf(const Oklab& colour)
{
    const double degrees = std::atan2(colour.blueYellow, colour.greenRed) * 180.0 / std::numbers::pi;
    return degrees < 0.0 ? degrees + 360.0 : degrees;
}

} // namespace

class PlaceColour : public testing::TestWithParam<Theme>
{
protected:
    PlaceColours colours{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Themes, PlaceColour, testing::Values(Theme::Dark, Theme::Light),
                         [](const auto& parameter) { return parameter.param == Theme::Dark ? "Dark" : "Light"; });

TEST_P(PlaceColour, LeftCentreAndRightDifferForEveryReader)
{
    constexpr double kDistance = 14.0;
    for (const Reader& reader : kReaders) {
        for (int step = 70; step <= 100; ++step) {
            const float level = static_cast<float>(step) / 100.0f;
            const Oklab left = seenBy(reader, colours.colourOf(kLeft, level));
            const Oklab centre = seenBy(reader, colours.colourOf(kCentre, level));
            const Oklab right = seenBy(reader, colours.colourOf(kRight, level));
            EXPECT_GE(tarn::distanceOf(left, centre), kDistance) << reader.name << ", level " << level;
            EXPECT_GE(tarn::distanceOf(right, centre), kDistance) << reader.name << ", level " << level;
            EXPECT_GE(tarn::distanceOf(left, right), kDistance) << reader.name << ", level " << level;
        }
    }
}

TEST_P(PlaceColour, HuesGoFromBlueOverVioletToOrange)
{
    // Hues have 256 steps over 160 degrees; colours are computed in single precision.
    EXPECT_NEAR(hueOf(colours.colourOf(kLeft, 0.9f)), 252.0, 0.1);
    EXPECT_NEAR(hueOf(colours.colourOf(kWide, 0.9f)), 328.0, 0.1);
    EXPECT_NEAR(hueOf(colours.colourOf(kRight, 0.9f)), 52.0, 0.1);
    double before = 0.0;
    for (int step = 0; step <= 100; ++step) {
        const auto right = static_cast<float>(step) / 100.0f;
        double hue = hueOf(colours.colourOf({.left = 1.0f - right, .right = right}, 0.8f));
        if (hue < 180.0) hue += 360.0;
        EXPECT_GE(hue, before - 0.1);
        before = hue;
    }
}

TEST_P(PlaceColour, CentreHasNoChromaAndItsShareTakesChromaAway)
{
    EXPECT_EQ(chromaOf(colours.colourOf(kCentre, 1.0f)), 0.0);
    for (const PlaceEnergies& side : {kLeft, kWide, kRight}) {
        double before = 1.0;
        for (int step = 0; step <= 4; ++step) {
            const float centre = static_cast<float>(step) / 4.0f;
            const float rest = (1.0f - centre) / side.sum();
            const double chroma = chromaOf(
                colours.colourOf({.left = rest * side.left, .centre = centre, .right = rest * side.right}, 0.8f));
            EXPECT_LT(chroma, before);
            before = chroma;
        }
    }
}

TEST_P(PlaceColour, SilenceHasTheColourOfThePanelEverywhere)
{
    const std::uint32_t silence = colours.pixelOf(kCentre, 0.0f);
    for (const PlaceEnergies& energies : {kLeft, kWide, kRight, PlaceEnergies{}})
        EXPECT_EQ(colours.pixelOf(energies, 0.0f), silence);
}

TEST_P(PlaceColour, LightnessGoesOneWayWithTheLevelAndColoursAreInSrgb)
{
    const bool isDark = GetParam() == Theme::Dark;
    std::vector<PlaceEnergies> places;
    for (int i = 0; i < 9 * 17; ++i) {
        const int row = i / 17;
        const float centre = static_cast<float>(row) / 8.0f;
        const float right = static_cast<float>(i % 17) / 16.0f;
        places.push_back({.left = (1.0f - centre) * (1.0f - right), .centre = centre, .right = (1 - centre) * right});
    }
    for (const PlaceEnergies& place : places) {
        double before = isDark ? -1.0 : 2.0;
        for (int step = 0; step <= 64; ++step) {
            const Oklab colour = colours.colourOf(place, static_cast<float>(step) / 64.0f);
            EXPECT_TRUE(isDark ? colour.lightness > before : colour.lightness < before);
            before = colour.lightness;
            const tarn::LinearRgb rgb = tarn::linearRgbOf(colour);
            const auto [low, high] = std::minmax({rgb.red, rgb.green, rgb.blue});
            // The table of chromas is interpolated.
            EXPECT_GE(low, -0.006);
            EXPECT_LE(high, 1.006);
        }
    }
}

TEST(PlaceColours, DarkThemeEndsAtTheLightnessOfTheDesign)
{
    const PlaceColours colours(Theme::Dark);
    EXPECT_NEAR(colours.colourOf(kLeft, 1.0f).lightness, 0.78, 1e-6); // in single precision
    EXPECT_NEAR(colours.colourOf(kRight, 1.0f).lightness, 0.78, 1e-6);
    EXPECT_NEAR(colours.colourOf(kCentre, 1.0f).lightness, 0.95, 1e-6);
}

TEST(PlaceColours, OklabConvertsForthAndBack)
{
    for (const tarn::LinearRgb& rgb : {tarn::LinearRgb{1, 1, 1}, tarn::LinearRgb{0.2, 0.5, 0.8}}) {
        const tarn::LinearRgb back = tarn::linearRgbOf(tarn::oklabOf(rgb));
        EXPECT_NEAR(back.red, rgb.red, 1e-6); // the matrices have ten digits
        EXPECT_NEAR(back.green, rgb.green, 1e-6);
        EXPECT_NEAR(back.blue, rgb.blue, 1e-6);
    }
    EXPECT_NEAR(tarn::oklabOf({1, 1, 1}).lightness, 1.0, 1e-6);
}
