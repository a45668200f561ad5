// What the module of the drawing exports.
// SPDX-License-Identifier: MIT
#pragma once

#include "picture/drawing.h"

#include <string>

namespace tarn
{

/// The type of drawPicture.
using DrawPicture = std::string(const PictureAnalysis& analysis, const PictureStyle& style);

} // namespace tarn

/// The version of the command that the module belongs to. Only that one may use the rest.
extern "C" [[gnu::visibility("default")]] const char tarn_drawing_version[];

/// Points to tarn::drawPicture.
extern "C" [[gnu::visibility("default")]] tarn::DrawPicture* const tarn_draw_picture;
