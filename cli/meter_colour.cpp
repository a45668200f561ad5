// The colours of places on a terminal.
// SPDX-License-Identifier: MIT
#include "cli/meter_colour.h"

#include "picture/place_colour.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <iterator>

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
    const auto stepOf = [&](int part) {
        const auto* const nearest = std::min_element(std::begin(kSteps), std::end(kSteps), [part](int a, int b) {
            return std::abs(a - part) < std::abs(b - part);
        });
        return static_cast<int>(nearest - std::begin(kSteps));
    };
    return 16 + 36 * stepOf(colour.red) + 6 * stepOf(colour.green) + stepOf(colour.blue);
}

} // namespace tarn
