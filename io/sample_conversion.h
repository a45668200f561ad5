#pragma once

#include "engine/saturate.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace zrk_tarn
{

/// Fixed gain of the input side, the float nearest to 2^6.5.
inline constexpr float kInputGain = 90.50966644287109f;

/// Bytes of the container of a sample of bitsPerSample bits; meaningless widths give sizes that no path supports.
inline std::int32_t containerBytes(std::int32_t bitsPerSample) noexcept
{
    return static_cast<std::int32_t>((std::int64_t{bitsPerSample} + 7) / 8);
}

/// Distance between the frames of an interleaved buffer, bytes.
inline std::size_t frameStride(std::int32_t bytesPerSample, std::uint32_t channels) noexcept
{
    return static_cast<std::size_t>(bytesPerSample) * channels;
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
    constexpr std::uint32_t kSign = std::uint32_t{1} << (8 * kBytes - 1);

    std::uint32_t bits = 0;
    for (int j = 0; j < kBytes; ++j) bits |= std::uint32_t{position[j]} << (8 * j);
    return static_cast<std::int32_t>((bits ^ kSign) - kSign);
}

/// Stores the low bytes of a sample, least significant first, at any alignment.
template <int kBytes>
void storeSample(std::uint8_t* position, std::uint32_t sample) noexcept
{
    for (int j = 0; j < kBytes; ++j) position[j] = static_cast<std::uint8_t>(sample >> (8 * j));
}

/// Host sample to engine scale: scaled, rounded half away from zero by the sign of the sample, then the input gain.
inline float toEngineScale(std::int32_t sample, float inputScale) noexcept
{
    if (sample == 0) return 0.0f;
    const float scaled = static_cast<float>(sample) * inputScale;
    const float rounded = sample > 0 ? std::floor(scaled + 0.5f) : std::ceil(scaled - 0.5f);
    return static_cast<float>(saturatedToInt32(rounded)) * kInputGain;
}

/// Engine output to host sample: scaled, rounded half away from zero by its sign, clipped on the side of that sign.
inline std::int32_t toHostSample(std::int32_t value, float outputScale, std::int32_t ceiling,
                                 std::int32_t floor) noexcept
{
    if (value == 0) return 0;
    const float scaled = static_cast<float>(value) * outputScale;
    if (value > 0) {
        const std::int32_t sample = saturatedToInt32(std::floor(scaled + 0.5f));
        return sample < ceiling ? sample : ceiling;
    }
    const std::int32_t sample = saturatedToInt32(std::ceil(scaled - 0.5f));
    return sample > floor ? sample : floor;
}

} // namespace zrk_tarn
