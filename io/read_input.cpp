// Reads host samples.
// SPDX-License-Identifier: MIT
#include "io/block_io.h"
#include "io/sample_conversion.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// Converts a block of samples to engine scale.
///
/// In   samples [64]  host integers
/// Out  newest  [64]
void convertInput(const std::int32_t (&samples)[64], float inputScale, float* newest) noexcept
{
    if (!(inputScale > 0.0f)) {
        for (int i = 0; i < 64; ++i) newest[i] = toEngineScale(samples[i], inputScale);
        return;
    }

    // With a positive scale, sample and scaled value have the same sign, and rounding is truncation after adding 0.5
    // with that sign. Zero stays zero.
    constexpr int kWidth = kVectorFloats;
    truncateRow(
        [&](int i) {
            const Floats<kWidth> scaled = toFloat(load<kWidth>(samples + i)) * broadcast<kWidth>(inputScale);
            return scaled + withSignOf(scaled, broadcast<kWidth>(0.5f));
        },
        [&](int i, const Ints<kWidth>& rounded) {
            store(newest + i, toFloat(rounded) * broadcast<kWidth>(kInputGain));
        });
}

/// Reads the samples of one slot.
///
/// In   position  first sample of the slot, frames of them, stride bytes apart
/// Out  samples   [frames]
template <int kBytes>
void readSlot(const std::uint8_t* position, std::size_t stride, std::size_t frames, std::int32_t* samples) noexcept
{
#pragma GCC unroll 8
    for (std::size_t i = 0; i < frames; ++i) {
        samples[i] = loadSample<kBytes>(position);
        position += stride;
    }
}

} // namespace

void readInputChannels(ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept
{
    const std::int32_t bytes = containerBytes(engine.bitsPerSample);
    const std::size_t stride = frameStride(bytes, channels);

    for (int c = 0; c < 2; ++c) {
        std::int32_t samples[64];
        const bool read = dispatchContainer(
            bytes, [&](auto width) { readSlot<width>(engine.channelPtr[c], stride, frames, samples); });
        // Samples that are not read are silence.
        for (std::uint32_t i = read ? frames : 0; i < 64; ++i) samples[i] = 0;
        convertInput(samples, engine.inputScale, engine.inputHistory[c] + 1024 - 64);
    }
}

void readRows(ZRKTarn& engine, const std::int32_t (&left)[64], const std::int32_t (&right)[64]) noexcept
{
    convertInput(left, engine.inputScale, engine.inputHistory[0] + 1024 - 64);
    convertInput(right, engine.inputScale, engine.inputHistory[1] + 1024 - 64);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
