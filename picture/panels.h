// The pixels of spectrograms and of the place panel.
// SPDX-License-Identifier: MIT
#pragma once

#include "picture/analysis.h"
#include "picture/place_colour.h"

#include <cstdint>
#include <vector>

namespace tarn
{

/// An image of pixels 0xRRGGBB, the top row first.
struct PixelImage
{
    int width = 0;
    int height = 0;
    std::vector<std::uint32_t> pixels{};
};

/// Levels of a spectrogram from the brightest to black, and of the place panel.
inline constexpr float kSpectrumRangeDb = 62.0f;
inline constexpr float kPlaceRangeDb = 36.0f;

/// The lightness of a level, 0 to 1: loud sounds stand out from a dense mix.
float shownLevel(float level) noexcept;

/// The spectrogram of left, centre and right, and that of the surround channels. Both have the same brightest level,
/// which a two-hundredth of the sounding area of the front exceeds.
PixelImage frontSpectrogram(const PictureAnalysis& analysis, const PlaceColours& colours, int width, int height);
PixelImage behindSpectrogram(const PictureAnalysis& analysis, const PlaceColours& colours, int width, int height);

/// Density between left (top), centre and right. Its brightest level is exceeded by a hundredth of its area.
PixelImage placePanel(const PictureAnalysis& analysis, const PlaceColours& colours, int width, int height);

} // namespace tarn
