// The colours of places on a terminal.
// SPDX-License-Identifier: MIT
#include "cli/meter_colour.h"

#include "picture/place_colour.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <numeric>

namespace tarn
{

Rgb placeColour(double left, double centre, double right, double level)
{
    static const PlaceColours colours(Theme::Dark);
    const PlaceEnergies energies{
        .left = static_cast<float>(left), .centre = static_cast<float>(centre), .right = static_cast<float>(right)};
    if (energies.sum() <= 0.0f || level <= 0.0) return {};
    const std::uint32_t pixel = colours.pixelOf(energies, static_cast<float>(std::min(level, 1.0)));
    return {static_cast<std::uint8_t>(pixel >> 16), static_cast<std::uint8_t>(pixel >> 8),
            static_cast<std::uint8_t>(pixel)};
}

int cubeColour(Rgb colour) noexcept
{
    constexpr int kSteps[] = {0, 95, 135, 175, 215, 255};
    constexpr int kGreys = 24;
    constexpr int kFirstGrey = 232;
    const auto stepOf = [&](int part) {
        const auto* const nearest = std::min_element(std::begin(kSteps), std::end(kSteps), [part](int a, int b) {
            return std::abs(a - part) < std::abs(b - part);
        });
        return static_cast<int>(nearest - std::begin(kSteps));
    };
    const auto distanceTo = [&](int red, int green, int blue) {
        const int parts[] = {red - colour.red, green - colour.green, blue - colour.blue};
        return std::inner_product(std::begin(parts), std::end(parts), std::begin(parts), 0);
    };
    const int red = stepOf(colour.red);
    const int green = stepOf(colour.green);
    const int blue = stepOf(colour.blue);
    const int mean = (colour.red + colour.green + colour.blue) / 3;
    const int grey = std::clamp((mean - 3) / 10, 0, kGreys - 1);
    const int greyLevel = 8 + 10 * grey;
    if (distanceTo(greyLevel, greyLevel, greyLevel) < distanceTo(kSteps[red], kSteps[green], kSteps[blue]))
        return kFirstGrey + grey;
    return 16 + 36 * red + 6 * green + blue;
}

} // namespace tarn
