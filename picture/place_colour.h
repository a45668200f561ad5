// The colour of a sound: its hue tells the place, its lightness the level.
// SPDX-License-Identifier: MIT
#pragma once

#include "picture/oklab.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tarn
{

/// The background of a picture.
enum class Theme : std::uint8_t
{
    Dark, ///< loud sounds are light
    Light ///< loud sounds are dark, for paper
};

/// The theme of a name, "dark" or "light"; other names give Dark.
Theme themeNamed(std::string_view name) noexcept;

/// Energies of the outputs.
struct PlaceEnergies
{
    float left = 0.0f;
    float centre = 0.0f;
    float right = 0.0f;

    float sum() const noexcept { return left + centre + right; }
};

/// Colours of one theme.
///
/// The hue of OKLCH goes from blue (252 degrees, left) over violet (328, left and right alike) to orange (52, right).
/// The share of the centre takes the chroma away, so the centre alone is white, or black on paper. Colours outside sRGB
/// get less chroma.
class PlaceColours
{
public:
    explicit PlaceColours(Theme theme);

    /// The colour of energies, which need not be normalised.
    ///
    /// level  0 background to 1 loudest
    Oklab colourOf(const PlaceEnergies& energies, float level) const noexcept;

    /// The same as 0xRRGGBB.
    std::uint32_t pixelOf(const PlaceEnergies& energies, float level) const noexcept;

    /// Any colour as 0xRRGGBB.
    std::uint32_t pixelOf(const Oklab& colour) const noexcept;

private:
    static constexpr std::size_t kHues = 256;       ///< steps from left to right
    static constexpr std::size_t kLightnesses = 64; ///< steps of the table of chromas

    /// A hue, and the largest chroma inside sRGB by lightness.
    struct Hue
    {
        float a = 0.0f; ///< cosine
        float b = 0.0f; ///< sine
        std::array<float, kLightnesses + 1> maxChroma{};
    };

    float lightnessOf(float centreShare, float level) const noexcept;

    bool isDark;
    std::vector<Hue> hues;
    std::vector<std::uint8_t> gamma; ///< sRGB of linear values
};

} // namespace tarn
