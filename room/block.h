// A block of samples: the unit of processing.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/exact_floats.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

inline constexpr std::size_t kBlockFrames = 64;

/// The samples of one slot in a block, integers of the width of the stream.
using Row = std::int32_t[kBlockFrames];

/// The same before rounding.
using UnroundedRow = double[kBlockFrames];

} // namespace zrk_tarn
