// The colours of places on a terminal.
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

/// The colour of the energies of the outputs, as pictures have it on a dark background; black for silence.
///
/// level  0 black to 1 loudest
Rgb placeColour(double left, double centre, double right, double level);

/// The nearest colour that terminals with 256 colours have, in their cube of 6 x 6 x 6 colours, 16 to 231, or their 24
/// greys, 232 to 255.
int cubeColour(Rgb colour) noexcept;

} // namespace tarn
