// The delay of the engine in blocks.
// SPDX-License-Identifier: MIT
#pragma once

#include "host/zrk_tarn_processor.h"
#include "room/block.h"

namespace zrk_tarn
{

inline constexpr std::size_t kEngineDelayBlocks = zrk_tarn_processor_t::kDelayFrames / kBlockFrames;

} // namespace zrk_tarn
