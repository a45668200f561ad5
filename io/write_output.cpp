// Writes host samples.
// SPDX-License-Identifier: MIT
#include "io/block_io.h"
#include "io/sample_conversion.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// Stores the samples of one slot, stride bytes apart.
template <int kBytes>
void writeSlot(const std::int32_t* samples, std::size_t frames, std::uint8_t* position, std::size_t stride) noexcept
{
#pragma GCC unroll 8
    for (std::size_t i = 0; i < frames; ++i) {
        storeSample<kBytes>(position, static_cast<std::uint32_t>(samples[i]));
        position += stride;
    }
}

} // namespace

std::uint32_t writeOutput(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept
{
    const std::int32_t bytes = containerBytes(engine.bitsPerSample);
    const std::size_t stride = frameStride(bytes, channels);

    // Channel after channel: if two share a slot, the last one wins.
    const bool written = dispatchContainer(bytes, [&](auto width) {
        const HostRange range(engine);
        for (int k = 0; k < 3; ++k) {
            std::uint8_t* const position = engine.channelPtr[k];
            if (engine.outputPtr[k] == engine.outputBlock[k]) {
                std::int32_t samples[64];
                convertRow(engine.outputBlock[k], range, samples);
                writeSlot<width>(samples, frames, position, stride);
            } else {
                // A row of the caller may be in the host buffer itself.
                for (std::uint32_t i = 0; i < frames; ++i)
                    storeSample<width>(position + i * stride,
                                       static_cast<std::uint32_t>(toHostSample(engine.outputPtr[k][i], range)));
            }
        }
    });
    return written ? 1 : 0;
}

void writeRows(const ZRKTarn& engine, std::int32_t (*rows)[64]) noexcept
{
    const HostRange range(engine);
    for (int k = 0; k < 3; ++k) convertRow(engine.outputBlock[k], range, rows[k]);
}

// cppcheck-suppress constParameter ; it writes rows of the engine
void convertOutput(ZRKTarn& engine, std::uint32_t frames) noexcept
{
    const HostRange range(engine);
    for (int k = 0; k < 3; ++k) {
        std::int32_t* const row = engine.outputPtr[k];
        if (row == engine.outputBlock[k]) {
            std::int32_t samples[64];
            convertRow(engine.outputBlock[k], range, samples);
            for (std::uint32_t i = 0; i < frames; ++i) row[i] = samples[i];
        } else {
            // A row of the caller may have only frames samples.
            for (std::uint32_t i = 0; i < frames; ++i) row[i] = toHostSample(row[i], range);
        }
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
