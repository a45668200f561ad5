// The block that the engine processes at a time.
// SPDX-License-Identifier: MIT
#pragma once

#include "host/zrk_tarn_processor.h"
#include "lanes/exact_floats.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

inline constexpr std::size_t kBlockFrames = 64;
inline constexpr std::size_t kEngineDelayBlocks = zrk_tarn_processor_t::kDelayFrames / kBlockFrames;

/// The samples of one slot in a block.
using Row = std::int32_t[kBlockFrames];

} // namespace zrk_tarn
