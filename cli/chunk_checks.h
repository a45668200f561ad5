// Checks the contents of WAVE chunks.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/chunks.h"

namespace tarn
{

/// Whether the contents of a chunk have the form of its kind: the entries of "cue ", "smpl" and "LIST" adtl fit into
/// the chunk, and "iXML" is well-formed XML. Other chunks are not checked.
bool isValid(const Chunk& chunk);

} // namespace tarn
