// Converts samples between a host's memory and rows of integers.
// SPDX-License-Identifier: MIT
#include "stream/sample_rows.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace zrk_tarn
{

namespace
{

/// Calls work with the distance of samples: a compile-time constant in mono and in two, three, six and eight
/// interleaved slots, where compilers load and store several samples at a time.
template <std::size_t kContainer, typename Work>
void withStride(std::size_t stride, Work work) noexcept
{
    switch (stride) {
    case kContainer:
        work(std::integral_constant<std::size_t, kContainer>{});
        break;
    case 2 * kContainer:
        work(std::integral_constant<std::size_t, 2 * kContainer>{});
        break;
    case 3 * kContainer:
        work(std::integral_constant<std::size_t, 3 * kContainer>{});
        break;
    case 6 * kContainer:
        work(std::integral_constant<std::size_t, 6 * kContainer>{});
        break;
    case 8 * kContainer:
        work(std::integral_constant<std::size_t, 8 * kContainer>{});
        break;
    default:
        work(stride);
        break;
    }
}

/// A little-endian integer of kBytes, sign-extended.
template <std::size_t kBytes>
std::int32_t integerAt(const std::byte* position) noexcept
{
    constexpr int kUnused = static_cast<int>(32 - 8 * kBytes);
    std::uint32_t bits = 0;
    if constexpr (std::endian::native == std::endian::little && kBytes != 3) {
        std::memcpy(&bits, position, kBytes);
    } else {
        for (std::size_t j = 0; j < kBytes; ++j) bits |= std::to_integer<std::uint32_t>(position[j]) << (8 * j);
    }
    return static_cast<std::int32_t>(bits << kUnused) >> kUnused;
}

/// Writes the low bytes of a sample, little-endian.
template <std::size_t kBytes>
void putInteger(std::byte* position, std::int32_t sample) noexcept
{
    const auto bits = static_cast<std::uint32_t>(sample);
    if constexpr (std::endian::native == std::endian::little && kBytes != 3) {
        std::memcpy(position, &bits, kBytes);
    } else {
        for (std::size_t j = 0; j < kBytes; ++j) position[j] = static_cast<std::byte>(bits >> (8 * j) & 0xffu);
    }
}

/// Reads little-endian integers of kBytes in containers of kContainer.
template <std::size_t kBytes, std::size_t kContainer>
void loadIntegers(const std::byte* first, std::size_t stride, std::size_t frames, std::int32_t* row,
                  SampleFaults& /*faults*/) noexcept
{
    withStride<kContainer>(stride, [=](auto distance) {
        for (std::size_t i = 0; i < frames; ++i) row[i] = integerAt<kBytes>(first + i * distance);
    });
}

/// Writes little-endian integers, sign-extended to kContainer bytes.
template <std::size_t kContainer>
void storeIntegers(const std::int32_t* row, std::size_t frames, std::byte* first, std::size_t stride) noexcept
{
    withStride<kContainer>(stride, [=](auto distance) {
        for (std::size_t i = 0; i < frames; ++i) putInteger<kContainer>(first + i * distance, row[i]);
    });
}

constexpr double kFullScale = 2147483648.0;

/// The integer for a float; full scale is +-1.
std::int32_t integerOf(float sample, SampleFaults& faults) noexcept
{
    if (std::isnan(sample)) {
        ++faults.invalid;
        return 0;
    }
    const double scaled = static_cast<double>(sample) * kFullScale;
    // +1.0 is one step above the largest integer. It is full scale, so it does not count as saturated.
    if (scaled >= kFullScale) {
        if (sample > 1.0f) ++faults.saturated;
        return INT32_MAX;
    }
    if (scaled < -kFullScale) {
        ++faults.saturated;
        return INT32_MIN;
    }
    return static_cast<std::int32_t>(static_cast<std::int64_t>(scaled < 0.0 ? scaled - 0.5 : scaled + 0.5));
}

void loadFloats(const std::byte* first, std::size_t stride, std::size_t frames, std::int32_t* row,
                SampleFaults& faults) noexcept
{
    for (std::size_t i = 0; i < frames; ++i, first += stride) {
        float sample = 0.0f;
        std::memcpy(&sample, first, sizeof sample);
        row[i] = integerOf(sample, faults);
    }
}

void storeFloats(const std::int32_t* row, std::size_t frames, std::byte* first, std::size_t stride) noexcept
{
    for (std::size_t i = 0; i < frames; ++i, first += stride) {
        const float sample = static_cast<float>(row[i]) * 0x1p-31f;
        std::memcpy(first, &sample, sizeof sample);
    }
}

} // namespace

const SampleRows& rowsOf(SampleFormat format) noexcept
{
    static constexpr SampleRows kRows[] = {
        {16, 2, loadIntegers<2, 2>, storeIntegers<2>},
        {24, 3, loadIntegers<3, 3>, storeIntegers<3>},
        {24, 4, loadIntegers<3, 4>, storeIntegers<4>},
        {32, 4, loadIntegers<4, 4>, storeIntegers<4>},
        {32, 4, loadFloats, storeFloats},
    };
    return kRows[static_cast<std::size_t>(format)];
}

} // namespace zrk_tarn
