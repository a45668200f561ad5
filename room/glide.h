// A value that fades linearly to its target.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/block.h"

#include <algorithm>
#include <cstddef>

namespace zrk_tarn
{

/// A value that moves linearly to a new target and reaches it after kFadeFrames. Advances block by block.
class Glide
{
public:
    static constexpr std::size_t kFadeFrames = 1024;

    /// Starts at a value, without a fade.
    explicit Glide(float value) noexcept : start(static_cast<double>(value)), target(start)
    {
        std::fill_n(values, kBlockFrames, target);
    }

    /// Advances to the next block. A new target starts a fade there.
    void beginBlock(float newTarget) noexcept
    {
        const bool wasSteady = framesDone == kFadeFrames;
        framesDone = std::min(framesDone + kBlockFrames, kFadeFrames);
        if (static_cast<double>(newTarget) != target) {
            start = valueAfter(framesDone);
            target = static_cast<double>(newTarget);
            framesDone = 0;
        } else if (wasSteady) {
            return;
        }
        for (std::size_t frame = 0; frame < kBlockFrames; ++frame) values[frame] = valueAfter(framesDone + frame + 1);
    }

    /// Returns whether all frames of the block have this value.
    bool isSteadyAt(float value) const noexcept
    {
        return target == static_cast<double>(value) && (framesDone == kFadeFrames || start == target);
    }

    /// The value for a frame of the block.
    double at(std::size_t frame) const noexcept { return values[frame]; }

    /// The values for the frames of the block.
    const UnroundedRow& row() const noexcept { return values; }

private:
    double valueAfter(std::size_t frames) const noexcept
    {
        if (frames >= kFadeFrames) return target;
        return start + (target - start) * (static_cast<double>(frames) / static_cast<double>(kFadeFrames));
    }

    double start;
    double target;
    std::size_t framesDone = kFadeFrames; ///< frames of the fade before this block
    UnroundedRow values;                  ///< of the block
};

} // namespace zrk_tarn
