// The samples in which the limiter looks for peaks.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/block.h"

#include <cstddef>

namespace zrk_tarn
{

/// A block of every output in single precision, full scale 1, with the end of the block before.
struct PeakWindow
{
    static constexpr std::size_t kRows = 8;
    static constexpr std::size_t kBefore = 11; ///< samples of the block before

    float samples[kRows][kBefore + kBlockFrames]{};
};

} // namespace zrk_tarn
