#include "engine/zrk_tarn.h"
#include "io/sample_conversion.h"

using namespace zrk_tarn;

std::uint32_t ZRKTarn::WriteOutput(std::uint32_t frames, std::uint32_t channels) noexcept
{
    const std::int32_t bytes = containerBytes(bitsPerSample);
    const std::size_t stride = frameStride(bytes, channels);

    // Channel after channel: where two share a slot, the later one wins.
    const bool written = dispatchContainer(bytes, [&](auto width) {
        for (int k = 0; k < 3; ++k) {
            for (std::uint32_t i = 0; i < frames; ++i) {
                const std::int32_t sample = toHostSample(outputPtr[k][i], outputScale, sampleCeiling, sampleFloor);
                storeSample<width>(channelPtr[k] + i * stride, static_cast<std::uint32_t>(sample));
            }
        }
    });
    return written ? 1 : 0;
}

std::uint32_t ZRKTarn::ProcessCine3InterLeave(std::uint32_t frames, std::uint32_t channels) noexcept
{
    ProcessCine3(frames, channels);
    WriteOutput(frames, channels);
    return 0;
}
