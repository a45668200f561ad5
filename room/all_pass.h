// An all-pass section, which changes phases only.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/exact_floats.h"

#include <cstdint>

namespace zrk_tarn
{

/// A section w[n] = x[n] + gain w[n - delay], y[n] = w[n - delay] - gain w[n] (M. R. Schroeder, Natural sounding
/// artificial reverberation, 1962). All sections start silent.
struct AllPass
{
    static constexpr std::int32_t kMaxDelay = 2560;

    /// Sets the delay, 64 to kMaxDelay frames, and the gain, between -1 and 1, of a silent section.
    void configure(std::int32_t frames, float coefficient) noexcept
    {
        delay = frames;
        length = (frames / 64 + 2) * 64;
        gain = coefficient;
    }

    std::int32_t delay = 64; ///< frames
    float gain = 0.0f;
    std::int32_t length = 192; ///< of the ring in use: a multiple of 64, at least delay + 64
    std::int32_t position = 0; ///< of the next block in the ring, a multiple of 64

    /// Values w, one block after the other. The first block has a copy behind the last one, so that 64 values can be
    /// read from any position. Aligned like the widest vectors.
    alignas(64) float ring[kMaxDelay + 3 * 64]{};
};

} // namespace zrk_tarn
