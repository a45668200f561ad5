// The places of titles, panels and axes on a picture.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <vector>

namespace tarn
{

/// Width and height of a picture in pixels.
struct PictureSize
{
    int width = 0;
    int height = 0;
};

inline constexpr PictureSize kSmallestPicture{.width = 640, .height = 400};
inline constexpr PictureSize kLargestPicture{.width = 8192, .height = 8192};

/// A rectangle of whole pixels.
struct PixelArea
{
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    int right() const noexcept { return x + width; }
    int bottom() const noexcept { return y + height; }
};

/// A picture from top to bottom: title and key, spectrograms, places, a lane per output, time axis.
struct Page
{
    PictureSize size;
    double text = 0.0;      ///< size of labels
    double titleText = 0.0; ///< size of the title
    double titleLine = 0.0; ///< baselines
    double figuresLine = 0.0;
    double timeLine = 0.0;
    PixelArea key{};      ///< of the places
    PixelArea levelKey{}; ///< of the levels
    PixelArea front{};    ///< spectrogram
    PixelArea behind{};   ///< spectrogram of the surround channels; empty if there are none
    PixelArea places{};
    std::vector<PixelArea> lanes{};
};

/// A size that gives all panels of a picture room: 1600 pixels wide, higher with surround channels.
PictureSize defaultSize(std::size_t lanes, bool hasBehind) noexcept;

/// Distributes a picture of at least kSmallestPicture.
Page pageOf(PictureSize size, std::size_t lanes, bool hasBehind);

} // namespace tarn
