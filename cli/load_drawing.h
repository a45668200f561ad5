// Loads the drawing of pictures when it is needed.
// SPDX-License-Identifier: MIT
#pragma once

#include "picture/drawing_module.h"

namespace tarn
{

/// Loads tarn-drawing.so, which is beside the program or in its folder of libraries, once in a process.
///
/// Returns drawPicture. Throws Failure (EX_SOFTWARE) if it is missing, cannot be loaded or has another version.
DrawPicture& loadDrawing();

} // namespace tarn
