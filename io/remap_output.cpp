// Mixes output rows with the remap matrix and writes host samples.
// SPDX-License-Identifier: MIT
#include "io/block_io.h"
#include "io/sample_conversion.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr int kGainFractionBits = 28;

/// One product of the mix. Sums wrap modulo 2^64: the stored bits, 28 to 59 at most, are exact even if gains far above
/// unity overflow a signed sum.
std::uint64_t product(std::int32_t gain, std::int32_t sample) noexcept
{
    return static_cast<std::uint64_t>(std::int64_t{gain} * sample);
}

/// The sum at sample scale, rounded towards minus infinity. Only its low bytes are stored, so it wraps.
std::uint32_t mixedSample(std::uint64_t sum) noexcept
{
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(sum) >> kGainFractionBits);
}

/// Mixes kTerms terms of one host position.
template <int kBytes, int kTerms>
void mixTerms(const std::int32_t* gains, const std::int32_t* const* sources, std::uint8_t* position, std::size_t stride,
              std::uint32_t frames) noexcept
{
    for (std::uint32_t i = 0; i < frames; ++i) {
        std::uint64_t sum = 0;
        for (int j = 0; j < kTerms; ++j) sum += product(gains[j], sources[j][i]);
        storeSample<kBytes>(position + i * stride, mixedSample(sum));
    }
}

} // namespace

std::uint32_t remapOutput(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept
{
    const std::int32_t bytes = containerBytes(engine.bitsPerSample);
    const std::size_t stride = frameStride(bytes, channels);

    const bool written = dispatchContainer(bytes, [&](auto width) {
        for (int c = 0; c < 4; ++c) {
            std::uint8_t* const position = engine.channelPtr[c];
            if constexpr (width == 4) {
                // Four-byte containers mix the whole matrix column, zero gains included.
                const std::int32_t gains[3] = {engine.remapCoeff[0][c], engine.remapCoeff[1][c],
                                               engine.remapCoeff[2][c]};
                mixTerms<width, 3>(gains, engine.outputPtr, position, stride, frames);
            } else {
                // SetRemapCoeff never sets other counts; they write nothing.
                const std::uint32_t terms = engine.remapTermCount[c];
                const std::int32_t* sources[3]{};
                for (std::uint32_t j = 0; terms <= 3 && frames > 0 && j < terms; ++j)
                    sources[j] = engine.outputPtr[engine.remapTermSource[c][j]];

                switch (terms) {
                case 0:
                    mixTerms<width, 0>(engine.remapTermGain[c], sources, position, stride, frames);
                    break;
                case 1:
                    mixTerms<width, 1>(engine.remapTermGain[c], sources, position, stride, frames);
                    break;
                case 2:
                    mixTerms<width, 2>(engine.remapTermGain[c], sources, position, stride, frames);
                    break;
                case 3:
                    mixTerms<width, 3>(engine.remapTermGain[c], sources, position, stride, frames);
                    break;
                default:
                    break;
                }
            }
        }
    });
    return written ? 1 : 0;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
