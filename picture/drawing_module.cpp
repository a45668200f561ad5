// The drawing as a module, because it needs Cairo and Pango with their libraries.
// SPDX-License-Identifier: MIT
#include "picture/drawing_module.h"

const char tarn_drawing_version[] = TARN_VERSION;
tarn::DrawPicture* const tarn_draw_picture = tarn::drawPicture;
