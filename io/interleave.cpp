// Converts interleaved host samples. The number of slots is a constant in each loop, so compilers load and store
// several frames at a time. SPDX-License-Identifier: MIT
#include "io/interleave.h"

#include "io/sample_conversion.h"
#include "lanes/lanes.h"

#include <type_traits>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// Integers of kBytes in containers of kContainer, little-endian.
template <int kBytes, int kContainer>
struct Integer
{
    static constexpr std::size_t kSize = kContainer;

    static std::int32_t load(const std::uint8_t* position) noexcept
    {
        if constexpr (kBytes == 3 && kContainer == 4) {
            return static_cast<std::int32_t>((static_cast<std::uint32_t>(loadSample<4>(position)) & 0xffffff) << 8) >>
                   8;
        } else {
            return loadSample<kBytes>(position);
        }
    }

    static void store(std::uint8_t* position, std::int32_t sample) noexcept
    {
        storeSample<kContainer>(position, static_cast<std::uint32_t>(sample));
    }
};

/// Floats of full scale 1. Loading keeps their bits; convertFloats follows.
struct Float : Integer<4, 4>
{
    static std::int32_t load(const std::uint8_t* position) noexcept
    {
        std::int32_t bits;
        __builtin_memcpy(&bits, position, sizeof bits);
        return bits;
    }

    static void store(std::uint8_t* position, std::int32_t sample) noexcept
    {
        const float value = static_cast<float>(sample) * 0x1p-31f;
        __builtin_memcpy(position, &value, sizeof value);
    }
};

constexpr float kFullScale = 0x1p31f; ///< one step above the largest integer

/// The float below one half. Added to a float, it reaches the next integer exactly where the fraction is a half or
/// more; a half would do so below a half too, where the sum is rounded up.
constexpr float kBelowHalf = 0x1.fffffep-2f;

/// Converts the bits of floats to integers, rounded half away from zero, and counts samples beyond full scale and NaN.
template <int kCount>
void convertFloats(const void* bits, std::int32_t* samples, Ints<kCount>& saturated, Ints<kCount>& invalid) noexcept
{
    Floats<kCount> given;
    __builtin_memcpy(&given, bits, sizeof given);
    const Ints<kCount> isNumber = given == given;
    // True lanes are -1. Full scale itself is not beyond it.
    saturated = saturated - (broadcast<kCount>(1.0f) < abs(given));
    invalid = invalid - ~isNumber;

    const Floats<kCount> limit = broadcast<kCount>(kFullScale);
    const Floats<kCount> scaled = given * limit;
    const Ints<kCount> whole = truncatedOrLowest(scaled + withSignOf(scaled, broadcast<kCount>(kBelowHalf)));
    store(samples, select(limit <= scaled, broadcast<kCount>(INT32_MAX), whole) & isNumber);
}

template <int kCount>
std::uint64_t sumOf(const Ints<kCount>& counts) noexcept
{
    std::int32_t values[static_cast<std::size_t>(kCount)];
    store(values, counts);
    std::uint64_t sum = 0;
    for (const std::int32_t value : values) sum += static_cast<std::uint64_t>(value);
    return sum;
}

/// The same for as many vectors as fit into a row. Returns the number of converted samples.
///
/// first  position of the bits, which can be that of the samples
template <int kCount>
std::size_t convertFloats(const std::uint8_t* first, std::int32_t* samples, std::size_t count,
                          SampleFaults& faults) noexcept
{
    Ints<kCount> saturated = broadcast<kCount>(0);
    Ints<kCount> invalid = saturated;
    std::size_t i = 0;
    for (; i + kCount <= count; i += kCount)
        convertFloats<kCount>(first + i * sizeof(float), samples + i, saturated, invalid);
    if (!any(broadcast<kCount>(0) < (saturated | invalid))) return i;
    faults.saturated += sumOf(saturated);
    faults.invalid += sumOf(invalid);
    return i;
}

/// The same for a whole row.
void convertRow(const std::uint8_t* first, std::int32_t* samples, std::size_t count, SampleFaults& faults) noexcept
{
    std::size_t done = convertFloats<kVectorFloats>(first, samples, count, faults);
    if constexpr (kVectorFloats > 4)
        done += convertFloats<4>(first + done * sizeof(float), samples + done, count - done, faults);
    if (done == count) return;
    // The last samples, filled up with silence.
    std::int32_t rest[4]{};
    for (std::size_t i = done; i < count; ++i)
        __builtin_memcpy(&rest[i - done], first + i * sizeof(float), sizeof(float));
    convertFloats<4>(reinterpret_cast<const std::uint8_t*>(rest), rest, 4, faults);
    for (std::size_t i = done; i < count; ++i) samples[i] = rest[i - done];
}

template <typename Sample, std::size_t kSlots>
void load(const std::byte* first, std::size_t frames, std::int32_t (*rows)[64], std::size_t offset,
          [[maybe_unused]] SampleFaults& faults) noexcept
{
    const auto* const __restrict samples = reinterpret_cast<const std::uint8_t*>(first);
    if constexpr (std::is_same_v<Sample, Float> && kSlots == 1) {
        convertRow(samples, rows[0] + offset, frames, faults);
        return;
    }
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t slot = 0; slot < kSlots; ++slot)
            rows[slot][offset + i] = Sample::load(samples + (i * kSlots + slot) * Sample::kSize);
    if constexpr (std::is_same_v<Sample, Float>) {
        for (std::size_t slot = 0; slot < kSlots; ++slot) {
            std::int32_t* const row = rows[slot] + offset;
            convertRow(reinterpret_cast<const std::uint8_t*>(row), row, frames, faults);
        }
    }
}

template <typename Sample, std::size_t kSlots>
void store(const std::int32_t (*rows)[64], std::size_t offset, std::size_t frames, std::byte* first) noexcept
{
    auto* const __restrict samples = reinterpret_cast<std::uint8_t*>(first);
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t slot = 0; slot < kSlots; ++slot)
            Sample::store(samples + (i * kSlots + slot) * Sample::kSize, rows[slot][offset + i]);
}

template <typename Sample, std::size_t kSlots>
constexpr Interleaving kInterleaving{load<Sample, kSlots>, store<Sample, kSlots>};

template <typename Sample>
constexpr Interleaving kInterleavings[] = {kInterleaving<Sample, 1>, kInterleaving<Sample, 2>, kInterleaving<Sample, 3>,
                                           kInterleaving<Sample, 4>, kInterleaving<Sample, 5>, kInterleaving<Sample, 6>,
                                           kInterleaving<Sample, 7>, kInterleaving<Sample, 8>};

} // namespace

const Interleaving& interleavingOf(SampleType type, std::size_t slots) noexcept
{
    switch (type) {
    case SampleType::Int16:
        return kInterleavings<Integer<2, 2>>[slots - 1];
    case SampleType::Int24:
        return kInterleavings<Integer<3, 3>>[slots - 1];
    case SampleType::Int24In32:
        return kInterleavings<Integer<3, 4>>[slots - 1];
    case SampleType::Int32:
        return kInterleavings<Integer<4, 4>>[slots - 1];
    default:
        return kInterleavings<Float>[slots - 1];
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
