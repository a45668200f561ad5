// Converts samples between a host's memory and rows of integers.
// SPDX-License-Identifier: MIT
#include "stream/sample_rows.h"

#include <cmath>
#include <cstring>

namespace zrk_tarn
{

namespace
{

/// Reads little-endian integers of kBytes.
template <std::size_t kBytes>
void loadIntegers(const std::byte* first, std::size_t stride, std::size_t frames, std::int32_t* row,
                  SampleFaults& /*faults*/) noexcept
{
    constexpr int kUnused = static_cast<int>(32 - 8 * kBytes);
    for (std::size_t i = 0; i < frames; ++i, first += stride) {
        std::uint32_t bits = 0;
        for (std::size_t j = 0; j < kBytes; ++j) bits |= std::to_integer<std::uint32_t>(first[j]) << (8 * j);
        row[i] = static_cast<std::int32_t>(bits << kUnused) >> kUnused;
    }
}

/// Writes little-endian integers, sign-extended to kContainer bytes.
template <std::size_t kContainer>
void storeIntegers(const std::int32_t* row, std::size_t frames, std::byte* first, std::size_t stride) noexcept
{
    for (std::size_t i = 0; i < frames; ++i, first += stride) {
        const auto bits = static_cast<std::uint32_t>(row[i]);
        for (std::size_t j = 0; j < kContainer; ++j) first[j] = static_cast<std::byte>(bits >> (8 * j) & 0xffu);
    }
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
        {16, 2, loadIntegers<2>, storeIntegers<2>}, {24, 3, loadIntegers<3>, storeIntegers<3>},
        {24, 4, loadIntegers<3>, storeIntegers<4>}, {32, 4, loadIntegers<4>, storeIntegers<4>},
        {32, 4, loadFloats, storeFloats},
    };
    return kRows[static_cast<std::size_t>(format)];
}

} // namespace zrk_tarn
