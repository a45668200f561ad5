// The colour of a sound: its hue tells the place, its lightness the level.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace tarn
{

/// A colour of a terminal, 0 to 255.
struct Rgb
{
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;

    bool operator==(const Rgb&) const = default;
};

/// The colour of the energies of the outputs, which need not be normalised.
///
/// In OKLCH: the hue goes from blue (252 degrees, left) over violet (328, left and right alike) to orange (52, right).
/// The share of the centre takes the chroma away, so the centre alone is white. Colours outside sRGB get less chroma.
///
/// level  0 black to 1 loudest
Rgb placeColour(double left, double centre, double right, double level) noexcept;

/// The nearest colour in the cube of 6 x 6 x 6 colours that terminals with 256 colours have: 16 to 231.
int cubeColour(Rgb colour) noexcept;

} // namespace tarn
