// Conversion between host samples and engine scale.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "lanes/lanes.h"
#include "lanes/saturate.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// Fixed input gain, the float nearest to 2^6.5.
inline constexpr float kInputGain = 90.50966644287109f;

/// Containers are little-endian; little-endian processors copy them as words.
inline constexpr bool kLittleEndian = std::endian::native == std::endian::little;

/// Bytes of a sample's container; invalid widths give unsupported sizes.
inline std::int32_t containerBytes(std::int32_t bitsPerSample) noexcept
{
    return static_cast<std::int32_t>((std::int64_t{bitsPerSample} + 7) / 8);
}

/// Bytes from one frame of an interleaved buffer to the next. Not used for unsupported containers.
inline std::size_t frameStride(std::int32_t bytesPerSample, std::uint32_t channels) noexcept
{
    return static_cast<std::size_t>(std::int64_t{bytesPerSample} * channels);
}

/// Calls work with the container size as a compile-time constant. Returns whether the size is supported.
template <typename Work>
bool dispatchContainer(std::int32_t bytesPerSample, Work work)
{
    switch (bytesPerSample) {
    case 2:
        work(std::integral_constant<int, 2>{});
        return true;
    case 3:
        work(std::integral_constant<int, 3>{});
        return true;
    case 4:
        work(std::integral_constant<int, 4>{});
        return true;
    default:
        return false;
    }
}

/// Reads a little-endian container at any alignment and extends its sign.
template <int kBytes>
std::int32_t loadSample(const std::uint8_t* position) noexcept
{
    if constexpr (kBytes == 3) {
        const std::uint32_t low = static_cast<std::uint32_t>(loadSample<2>(position)) & 0xffff;
        return static_cast<std::int8_t>(position[2]) * 65536 + static_cast<std::int32_t>(low);
    } else if constexpr (kLittleEndian) {
        std::conditional_t<kBytes == 2, std::int16_t, std::int32_t> sample;
        __builtin_memcpy(&sample, position, sizeof sample);
        return sample;
    } else {
        constexpr std::uint32_t kSign = std::uint32_t{1} << (8 * kBytes - 1);
        std::uint32_t bits = 0;
        for (int j = 0; j < kBytes; ++j) bits |= std::uint32_t{position[j]} << (8 * j);
        return static_cast<std::int32_t>((bits ^ kSign) - kSign);
    }
}

/// Stores the low bytes of a sample, least significant first, at any alignment.
template <int kBytes>
void storeSample(std::uint8_t* position, std::uint32_t sample) noexcept
{
    if constexpr (kLittleEndian && kBytes == 4) {
        __builtin_memcpy(position, &sample, 4);
    } else if constexpr (kLittleEndian) {
        const auto low = static_cast<std::uint16_t>(sample);
        __builtin_memcpy(position, &low, 2);
        if (kBytes == 3) position[2] = static_cast<std::uint8_t>(sample >> 16);
    } else {
        for (int j = 0; j < kBytes; ++j) position[j] = static_cast<std::uint8_t>(sample >> (8 * j));
    }
}

/// Converts a host sample to engine scale: scales it, rounds half away from zero, and applies the input gain.
inline float toEngineScale(std::int32_t sample, float inputScale) noexcept
{
    if (sample == 0) return 0.0f;
    const float scaled = static_cast<float>(sample) * inputScale;
    const float rounded = sample > 0 ? __builtin_floorf(scaled + 0.5f) : __builtin_ceilf(scaled - 0.5f);
    return static_cast<float>(saturatedToInt32(rounded)) * kInputGain;
}

/// The conversion of engine output to host samples.
struct HostRange
{
    explicit HostRange(const ZRKTarn& engine) noexcept
        : scale(engine.outputScale), ceiling(engine.sampleCeiling), floor(engine.sampleFloor)
    {}

    float scale;          ///< engine scale to host integer
    std::int32_t ceiling; ///< largest host sample
    std::int32_t floor;   ///< smallest host sample
};

/// Converts engine output to a host sample: scales it, rounds half away from zero, and clips on the side of its sign.
inline std::int32_t toHostSample(std::int32_t value, const HostRange& range) noexcept
{
    if (value == 0) return 0;
    const float scaled = static_cast<float>(value) * range.scale;
    if (value > 0) {
        const std::int32_t sample = saturatedToInt32(__builtin_floorf(scaled + 0.5f));
        return sample < range.ceiling ? sample : range.ceiling;
    }
    const std::int32_t sample = saturatedToInt32(__builtin_ceilf(scaled - 0.5f));
    return sample > range.floor ? sample : range.floor;
}

/// toHostSample for a whole row of the engine.
inline void convertRow(const std::int32_t (&row)[64], const HostRange& range, std::int32_t (&samples)[64]) noexcept
{
    // With a positive scale, value and scaled value have the same sign, and rounding is truncation after adding 0.5
    // with that sign. With zero in the range, clipping on both sides is clipping on the side of the sign.
    if (!(range.scale > 0.0f) || range.floor > 0 || range.ceiling < 0) {
        for (int i = 0; i < 64; ++i) samples[i] = toHostSample(row[i], range);
        return;
    }

    constexpr int kWidth = kVectorFloats;
    const auto biased = [&](int i) {
        const Floats<kWidth> scaled = toFloat(load<kWidth>(row + i)) * broadcast<kWidth>(range.scale);
        return scaled + withSignOf(scaled, broadcast<kWidth>(0.5f));
    };

    // Whole numbers up to 2^24 are floats, so clipping before truncation gives the same and prevents overflow. An
    // infinite scale would turn 0 to NaN.
    constexpr std::int32_t kExact = 1 << 24;
    if (range.floor >= -kExact && range.ceiling <= kExact && range.scale < __builtin_inff()) {
        const Floats<kWidth> ceiling = broadcast<kWidth>(static_cast<float>(range.ceiling));
        const Floats<kWidth> floor = broadcast<kWidth>(static_cast<float>(range.floor));
#pragma GCC unroll 1
        for (int i = 0; i < 64; i += kWidth) store(samples + i, truncated(larger(smaller(biased(i), ceiling), floor)));
        return;
    }

    const Ints<kWidth> ceiling = broadcast<kWidth>(range.ceiling);
    const Ints<kWidth> floor = broadcast<kWidth>(range.floor);
    truncateRow(biased, [&](int i, const Ints<kWidth>& whole) {
        const Ints<kWidth> below = select(whole < ceiling, whole, ceiling);
        store(samples + i, select(floor < below, below, floor));
    });
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
