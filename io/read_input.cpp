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

/// The four bytes at a position of kCount frames.
template <int kCount>
[[gnu::always_inline]] inline Ints<kCount> loadWords(const std::uint8_t* position, std::size_t stride) noexcept
{
    if constexpr (kCount == 4) {
        return {{typename Ints<4>::Part{loadSample<4>(position), loadSample<4>(position + stride),
                                        loadSample<4>(position + 2 * stride), loadSample<4>(position + 3 * stride)}}};
    } else {
        constexpr int kHalf = kCount / 2;
        return joined(loadWords<kHalf>(position, stride), loadWords<kHalf>(position + kHalf * stride, stride));
    }
}

/// Reads the samples of both slots, whole vectors of frames four bytes at a time. Samples of two and three bytes must
/// be neighbours, left first, so that no load reaches beyond them.
template <int kBytes>
[[gnu::always_inline]] inline void readWords(const std::uint8_t* left, const std::uint8_t* right, std::size_t stride,
                                             std::size_t frames, std::int32_t (&samples)[2][64]) noexcept
{
    constexpr std::size_t kWidth = kVectorFloats;
    const std::size_t whole = frames / kWidth * kWidth;
#pragma GCC unroll 1
    for (std::size_t i = 0; i < whole; i += kWidth) {
        const Ints<kWidth> first = loadWords<kWidth>(left, stride);
        if constexpr (kBytes == 2) {
            store(samples[0] + i, shiftedRight<16>(shiftedLeft<16>(first)));
            store(samples[1] + i, shiftedRight<16>(first));
        } else if constexpr (kBytes == 3) {
            store(samples[0] + i, shiftedRight<8>(shiftedLeft<8>(first)));
            store(samples[1] + i, shiftedRight<8>(loadWords<kWidth>(right - 1, stride)));
        } else {
            store(samples[0] + i, first);
            store(samples[1] + i, loadWords<kWidth>(right, stride));
        }
        left += kWidth * stride;
        right += kWidth * stride;
    }
    readSlot<kBytes>(left, stride, frames - whole, samples[0] + whole);
    readSlot<kBytes>(right, stride, frames - whole, samples[1] + whole);
}

/// The same for an incomplete block.
template <int kBytes>
[[gnu::noinline]] void readPartOfBlock(const std::uint8_t* left, const std::uint8_t* right, std::size_t stride,
                                       std::size_t frames, std::int32_t (&samples)[2][64]) noexcept
{
    readWords<kBytes>(left, right, stride, frames, samples);
}

/// Reads the samples of both slots.
template <int kBytes>
void readSlots(const std::uint8_t* left, const std::uint8_t* right, std::size_t stride, std::size_t frames,
               std::int32_t (&samples)[2][64]) noexcept
{
    if (frames == 0) return; // the slots may be null
    if (kBytes != 4 && right != left + kBytes) {
        readSlot<kBytes>(left, stride, frames, samples[0]);
        readSlot<kBytes>(right, stride, frames, samples[1]);
    } else if (frames == 64) {
        readWords<kBytes>(left, right, stride, 64, samples);
    } else {
        readPartOfBlock<kBytes>(left, right, stride, frames, samples);
    }
}

} // namespace

void readInputChannels(ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept
{
    const std::int32_t bytes = containerBytes(engine.bitsPerSample);
    const std::size_t stride = frameStride(bytes, channels);

    std::int32_t samples[2][64];
    const bool read = dispatchContainer(bytes, [&](auto width) {
        readSlots<width>(engine.channelPtr[0], engine.channelPtr[1], stride, frames, samples);
    });
    // Samples that are not read are silence.
    for (std::uint32_t i = read ? frames : 0; i < 64; ++i) samples[0][i] = samples[1][i] = 0;
    readRows(engine, samples[0], samples[1]);
}

void readRows(ZRKTarn& engine, const std::int32_t (&left)[64], const std::int32_t (&right)[64]) noexcept
{
    convertInput(left, engine.inputScale, engine.inputHistory[0] + 1024 - 64);
    convertInput(right, engine.inputScale, engine.inputHistory[1] + 1024 - 64);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
