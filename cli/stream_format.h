// Sample rate and width of PCM, and sample conversions.
// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>

namespace tarn
{

/// Sample widths that the command writes, bits.
inline constexpr std::array<std::uint32_t, 3> kWidths{16, 24, 32};

/// Rate and width of a PCM stream.
struct StreamFormat
{
    std::uint32_t sampleRate = 0; ///< Hz
    std::uint32_t bits = 0;       ///< 16, 24 or 32

    std::uint32_t bytesPerSample() const noexcept { return bits / 8; }
};

/// Whether a sample rate can be converted to one of the engine's.
bool isConvertibleRate(std::uint32_t sampleRate) noexcept;

/// The range of these rates for messages: "4000 to 768000 Hz".
std::string convertibleRates();

/// The lowest rate of the engine that is not below this rate; its highest if there is none.
std::uint32_t engineRateFor(std::uint32_t sampleRate) noexcept;

/// Converts a number of frames to another rate, rounded to nearest; at least 1 unless frames is 0.
std::uint64_t framesAtRate(std::uint64_t frames, std::uint32_t rate, std::uint32_t newRate) noexcept;

/// Reads "RATE:BITS", as in 48000:16.
///
/// Throws Failure (EX_USAGE) for other texts and for unsupported rates and widths.
StreamFormat parseRawFormat(const std::string& text);

/// Converts a left-justified sample to a right-justified one of the width: rounds half away from zero and saturates.
///
/// Exact for samples that already fit the width.
constexpr std::int32_t toWidth(std::int32_t leftJustified, std::uint32_t bits) noexcept
{
    if (bits == 32) return leftJustified;
    const std::uint32_t shift = 32 - bits;
    const std::int32_t half = std::int32_t{1} << (shift - 1);
    const std::int32_t sign = leftJustified >> 31; // -1 or 0
    return (std::min(leftJustified, INT32_MAX - half) + half + sign) >> shift;
}

/// The reverse for samples that fit the width.
constexpr std::int32_t leftJustified(std::int32_t sample, std::uint32_t bits) noexcept
{
    return sample * (std::int32_t{1} << (32 - bits));
}

/// Converts a sample of full scale 1 to a left-justified one: rounds half away from zero and saturates.
inline std::int32_t fromFullScale(double sample) noexcept
{
    const double scaled = std::round(sample * 0x1p31);
    return static_cast<std::int32_t>(std::clamp(scaled, -0x1p31, 0x1p31 - 1.0));
}

/// Stores the low bytes of a right-justified sample, little-endian.
inline void storePcm(std::uint8_t* to, std::int32_t sample, std::uint32_t bytes) noexcept
{
    const auto word = static_cast<std::uint32_t>(sample);
    for (std::uint32_t i = 0; i < bytes; ++i) to[i] = static_cast<std::uint8_t>(word >> (8 * i));
}

/// Loads a little-endian sample and left-justifies it.
inline std::int32_t loadLeftJustified(const std::uint8_t* from, std::uint32_t bytes) noexcept
{
    std::uint32_t word = 0;
    for (std::uint32_t i = 0; i < bytes; ++i) word |= std::uint32_t{from[i]} << (8 * (4 - bytes + i));
    return std::bit_cast<std::int32_t>(word);
}

} // namespace tarn
