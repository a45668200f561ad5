// Accumulates channel levels while samples pass to the next sink.
// SPDX-License-Identifier: MIT
#include "cli/level_sink.h"

#include <algorithm>
#include <cmath>

namespace tarn
{

void LevelSink::write(const std::int32_t* samples, std::size_t frames)
{
    const std::int64_t step = std::int64_t{1} << (32 - bits);
    const std::int32_t* next = samples;
    for (std::size_t i = 0; i < frames; ++i) {
        for (ChannelLevel& channel : channels) {
            const std::int64_t sample = *next++;
            const double value = static_cast<double>(sample) * 0x1p-31;
            channel.peak = std::max(channel.peak, std::abs(value));
            channel.energy += value * value;
            if (sample == INT32_MIN || sample + step > INT32_MAX) ++channel.fullScaleSamples;
        }
    }
    sink.write(samples, frames);
}

} // namespace tarn
