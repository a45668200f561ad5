// Input and output of the reference engine.
// SPDX-License-Identifier: MIT
#include <cmath>
#include <cstddef>

#include "tests/reference/reference_engine.h"

namespace reference
{

namespace
{

// Fixed gain of the input side: the single-precision number nearest 64 times the square root of 2.
const float kInputGain = 90.50966644287109f;

/// Bytes of a container for samples of a width; the division rounds towards zero for a negative width.
std::int64_t containerBytes(std::int32_t bitsPerSample)
{
    return (static_cast<std::int64_t>(bitsPerSample) + 7) / 8;
}

/// Whether containers of a size are read and written.
bool isSupportedContainer(std::int64_t bytes)
{
    return bytes == 2 || bytes == 3 || bytes == 4;
}

/// Reads a signed little-endian container of 2, 3 or 4 bytes.
std::int32_t readContainer(const std::uint8_t* bytes, std::int64_t size)
{
    if (size == 2) {
        const std::int32_t value = bytes[0] + 256 * bytes[1];
        return (value ^ 0x8000) - 0x8000;
    }
    if (size == 3) {
        const std::int32_t value = bytes[0] + 256 * bytes[1] + 65536 * bytes[2];
        return (value ^ 0x800000) - 0x800000;
    }
    const std::uint32_t value = static_cast<std::uint32_t>(bytes[0]) + 256u * static_cast<std::uint32_t>(bytes[1]) +
                                65536u * static_cast<std::uint32_t>(bytes[2]) +
                                16777216u * static_cast<std::uint32_t>(bytes[3]);
    return static_cast<std::int32_t>(value);
}

/// Stores the low bytes of a value, least significant byte first.
void storeContainer(std::uint8_t* bytes, std::int64_t size, std::int64_t value)
{
    for (std::int64_t j = 0; j < size; ++j) bytes[j] = static_cast<std::uint8_t>((value >> (8 * j)) & 0xff);
}

/// Engine value of a host sample: scaled, rounded half away from zero by the sign of the sample, then amplified.
float toEngineValue(std::int32_t sample, float inputScale)
{
    if (sample == 0) return 0.0f;
    const float scaled = static_cast<float>(sample) * inputScale;
    float rounded;
    if (sample > 0) {
        rounded = std::floor(scaled + 0.5f);
    } else {
        rounded = std::ceil(scaled - 0.5f);
    }
    return static_cast<float>(toInt32(static_cast<double>(rounded))) * kInputGain;
}

/// Host sample of an engine output value: scaled, rounded half away from zero, clipped on the side of the value's sign.
std::int32_t toHostSample(std::int32_t value, float outputScale, std::int32_t sampleCeiling, std::int32_t sampleFloor)
{
    if (value == 0) return 0;
    if (value > 0) {
        const float rounded = std::floor(static_cast<float>(value) * outputScale + 0.5f);
        std::int32_t sample = toInt32(static_cast<double>(rounded));
        if (!(sample < sampleCeiling)) sample = sampleCeiling;
        return sample;
    }
    const float rounded = std::ceil(static_cast<float>(value) * outputScale - 0.5f);
    std::int32_t sample = toInt32(static_cast<double>(rounded));
    if (!(sample > sampleFloor)) sample = sampleFloor;
    return sample;
}

/// Product of two signed 32-bit values as the bits of a 64-bit number.
std::uint64_t productBits(std::int32_t a, std::int32_t b)
{
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(a) * static_cast<std::int64_t>(b));
}

/// Removes the 28 fraction bits of a sum of products; rounds towards minus infinity.
std::int64_t withoutFraction(std::uint64_t sumBits)
{
    return static_cast<std::int64_t>(sumBits) >> 28;
}

} // namespace

std::uint32_t Engine::ReadInputChannels(std::uint32_t frames, std::uint32_t channels)
{
    const std::int64_t width = containerBytes(bitsPerSample);

    if (isSupportedContainer(width)) {
        const std::size_t stride = static_cast<std::size_t>(channels) * static_cast<std::size_t>(width);
        for (std::uint32_t i = 0; i < frames; ++i) {
            const std::int32_t left = readContainer(channelPtr[0] + i * stride, width);
            inputHistory[0][960 + i] = toEngineValue(left, inputScale);
            const std::int32_t right = readContainer(channelPtr[1] + i * stride, width);
            inputHistory[1][960 + i] = toEngineValue(right, inputScale);
        }
    } else {
        for (std::uint32_t i = 0; i < frames; ++i) {
            inputHistory[0][960 + i] = 0.0f;
            inputHistory[1][960 + i] = 0.0f;
        }
    }

    if (frames < 64) {
        for (std::uint32_t i = frames; i < 64; ++i) {
            inputHistory[0][960 + i] = 0.0f;
            inputHistory[1][960 + i] = 0.0f;
        }
    }
    return 0;
}

std::uint32_t Engine::WriteOutput(std::uint32_t frames, std::uint32_t channels)
{
    const std::int64_t width = containerBytes(bitsPerSample);
    if (!isSupportedContainer(width)) return 0;
    const std::size_t stride = static_cast<std::size_t>(channels) * static_cast<std::size_t>(width);

    for (int k = 0; k < 3; ++k) {
        for (std::uint32_t i = 0; i < frames; ++i) {
            const std::int32_t sample = toHostSample(outputPtr[k][i], outputScale, sampleCeiling, sampleFloor);
            storeContainer(channelPtr[k] + i * stride, width, sample);
        }
    }
    return 1;
}

std::uint32_t Engine::ProcessCine3InterLeave(std::uint32_t frames, std::uint32_t channels)
{
    ProcessCine3(frames, channels);
    WriteOutput(frames, channels);
    return 0;
}

std::uint32_t Engine::SetRemapCoeff(int (*coeff)[4])
{
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 4; ++c) remapCoeff[r][c] = coeff[r][c];
    }
    for (int c = 0; c < 4; ++c) {
        std::uint32_t n = 0;
        for (std::uint32_t r = 0; r < 3; ++r) {
            if (coeff[r][c] != 0) {
                remapTermGain[c][n] = coeff[r][c];
                remapTermSource[c][n] = r;
                ++n;
            }
        }
        remapTermCount[c] = n;
    }
    return 0;
}

std::uint32_t Engine::ProcessCine3InterLeaveRemap(std::uint32_t frames, std::uint32_t channels)
{
    ProcessCine3(frames, channels);
    for (int k = 0; k < 3; ++k) {
        for (std::uint32_t i = 0; i < frames; ++i) {
            outputPtr[k][i] = toHostSample(outputPtr[k][i], outputScale, sampleCeiling, sampleFloor);
        }
    }
    RemapOutput(frames, channels);
    return 0;
}

std::uint32_t Engine::RemapOutput(std::uint32_t frames, std::uint32_t channels)
{
    const std::int64_t width = containerBytes(bitsPerSample);
    if (!isSupportedContainer(width)) return 0;
    const std::size_t stride = static_cast<std::size_t>(channels) * static_cast<std::size_t>(width);

    // The sum is formed modulo 2^64: with three extreme gains it exceeds 63 bits, and the stored bytes stay the same.
    for (int c = 0; c < 4; ++c) {
        const std::uint32_t count = remapTermCount[c];
        for (std::uint32_t i = 0; i < frames; ++i) {
            std::uint8_t* position = channelPtr[c] + i * stride;
            if (width == 4) {
                std::uint64_t sum = 0;
                for (int r = 0; r < 3; ++r) sum += productBits(remapCoeff[r][c], outputPtr[r][i]);
                storeContainer(position, width, withoutFraction(sum));
            } else if (count == 0) {
                storeContainer(position, width, 0);
            } else if (count == 1 || count == 2 || count == 3) {
                std::uint64_t sum = 0;
                for (std::uint32_t j = 0; j < count; ++j) {
                    sum += productBits(remapTermGain[c][j], outputPtr[remapTermSource[c][j]][i]);
                }
                storeContainer(position, width, withoutFraction(sum));
            }
        }
    }
    return 1;
}

} // namespace reference
