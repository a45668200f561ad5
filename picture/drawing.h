// Draws the picture of an upmix.
// SPDX-License-Identifier: MIT
#pragma once

#include "picture/analysis.h"
#include "picture/page.h"
#include "picture/picture_format.h"
#include "picture/place_colour.h"

#include <string>

namespace tarn
{

/// How to draw a picture.
struct PictureStyle
{
    PictureFormat format = PictureFormat::Png;
    PictureSize size; ///< kSmallestPicture to kLargestPicture
    Theme theme = Theme::Dark;
    std::string title;         ///< UTF-8
    std::string layout;        ///< name of the layout
    double startSeconds = 0.0; ///< time of the first frame on the time axis
};

/// Draws a recording that has at least a frame. Returns the bytes of the file.
std::string drawPicture(const PictureAnalysis& analysis, const PictureStyle& style);

} // namespace tarn
