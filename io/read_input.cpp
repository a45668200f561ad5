#include "engine/zrk_tarn.h"
#include "io/sample_conversion.h"

#include <algorithm>

using namespace zrk_tarn;

namespace
{

/// Converts one slot of a block.
///
/// In   position  first sample of the slot, frames of them, stride bytes apart
/// Out  newest    [frames] engine scale
template <int kBytes>
void readSlot(const std::uint8_t* position, std::size_t stride, std::uint32_t frames, float inputScale, float* newest)
{
    for (std::uint32_t i = 0; i < frames; ++i)
        newest[i] = toEngineScale(loadSample<kBytes>(position + i * stride), inputScale);
}

} // namespace

std::uint32_t ZRKTarn::ReadInputChannels(std::uint32_t frames, std::uint32_t channels) noexcept
{
    constexpr int kNewest = 1024 - 64;

    const std::int32_t bytes = containerBytes(bitsPerSample);
    const std::size_t stride = frameStride(bytes, channels);
    for (int c = 0; c < 2; ++c) {
        float* const newest = &inputHistory[c][kNewest];

        const bool read = dispatchContainer(
            bytes, [&](auto width) { readSlot<width>(channelPtr[c], stride, frames, inputScale, newest); });
        const std::uint32_t converted = read ? frames : 0;
        std::fill(newest + converted, newest + 64, 0.0f);
    }
    return 0;
}
