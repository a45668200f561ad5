#include "cli/level_sink.h"

#include <algorithm>
#include <cmath>

namespace tarn
{

void LevelSink::write(const std::uint8_t* slots, std::size_t frames)
{
    const std::int64_t unused = std::int64_t{1} << (32 - bits);
    const std::uint8_t* at = slots;
    for (std::size_t i = 0; i < frames; ++i) {
        for (ChannelLevel& channel : channels) {
            const std::int64_t sample = loadLeftJustified(at, sampleBytes);
            const double value = static_cast<double>(sample) * 0x1p-31;
            channel.peak = std::max(channel.peak, std::abs(value));
            channel.energy += value * value;
            if (sample == INT32_MIN || sample + unused > INT32_MAX) ++channel.fullScaleSamples;
            at += sampleBytes;
        }
    }
    sink.write(slots, frames);
}

} // namespace tarn
