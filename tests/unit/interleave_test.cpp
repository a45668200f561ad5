// Interleaved samples and rows, sample by sample.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <vector>

namespace
{

using tests::Random;
using zrk_tarn::Interleaving;
using zrk_tarn::SampleFaults;
using zrk_tarn::SampleType;

constexpr std::size_t kRow = 64;

struct Type
{
    SampleType type;
    std::size_t bytes;
    std::size_t used; ///< lower bytes with the sample
};

constexpr Type kIntegers[] = {
    {SampleType::Int16, 2, 2}, {SampleType::Int24, 3, 3}, {SampleType::Int24In32, 4, 3}, {SampleType::Int32, 4, 4}};

const Interleaving& conversionOf(SampleType type, std::size_t slots)
{
    return zrk_tarn::chosenOperations().interleavingOf(type, slots);
}

/// Calls visit(slots, frames, offset) for all numbers of slots and some parts of a block.
template <typename Visit>
void forEachShape(Visit visit)
{
    for (std::size_t slots = 1; slots <= 8; ++slots)
        for (const std::size_t frames : {1u, 2u, 7u, 8u, 15u, 31u, 33u, 63u, 64u})
            for (const std::size_t offset : {std::size_t{0}, (kRow - frames) / 2, kRow - frames})
                visit(slots, frames, offset);
}

std::int32_t integerAt(const std::uint8_t* bytes, std::size_t used)
{
    std::uint32_t word = 0;
    for (std::size_t j = 0; j < used; ++j) word |= std::uint32_t{bytes[j]} << (8 * j);
    const auto unused = static_cast<int>(32 - 8 * used);
    return static_cast<std::int32_t>(word << unused) >> unused;
}

/// The integer for a float, in double precision.
std::int32_t integerOf(float sample, SampleFaults& faults)
{
    if (std::isnan(sample)) {
        ++faults.invalid;
        return 0;
    }
    if (std::abs(sample) > 1.0f) ++faults.saturated;
    const double rounded = std::round(static_cast<double>(sample) * 0x1p31);
    return static_cast<std::int32_t>(std::clamp(rounded, -0x1p31, 0x1p31 - 1.0));
}

float hostileFloat(Random& random)
{
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kSpecial[] = {0.0f,
                                  -0.0f,
                                  1.0f,
                                  -1.0f,
                                  0x1.000002p0f,
                                  -0x1.000002p0f,
                                  0x1p-32f,
                                  -0x1p-32f,
                                  0x3p-32f,
                                  -0x3p-32f,
                                  0x1.fffffep-33f,
                                  0x1.fffffep-1f,
                                  -0x1.fffffep-1f,
                                  kInfinity,
                                  -kInfinity,
                                  kNan,
                                  0x1p-149f,
                                  3e38f};
    if (random.chance(4)) return kSpecial[random.bits() % std::size(kSpecial)];
    const int exponent = static_cast<int>(random.bits() % 40) - 36;
    return static_cast<float>(std::ldexp(random.uniform() - 0.5, exponent));
}

} // namespace

TEST(Interleave, IntegersGoToTheirRowsAndBack)
{
    Random random(1);
    for (const Type& type : kIntegers) {
        forEachShape([&](std::size_t slots, std::size_t frames, std::size_t offset) {
            SCOPED_TRACE(testing::Message() << type.bytes << " bytes, " << slots << " slots, " << frames << " frames");
            std::vector<std::uint8_t> bytes(slots * frames * type.bytes);
            for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random.bits());
            std::int32_t rows[8][kRow];
            for (auto& row : rows)
                for (std::int32_t& sample : row) sample = 123456789;

            SampleFaults faults;
            conversionOf(type.type, slots)
                .load(reinterpret_cast<const std::byte*>(bytes.data()), frames, rows, offset, faults);
            for (std::size_t slot = 0; slot < 8; ++slot) {
                for (std::size_t i = 0; i < kRow; ++i) {
                    const bool isRead = slot < slots && i >= offset && i < offset + frames;
                    const auto place = [&] { return ((i - offset) * slots + slot) * type.bytes; };
                    EXPECT_EQ(rows[slot][i], isRead ? integerAt(&bytes[place()], type.used) : 123456789);
                }
            }
            EXPECT_EQ(faults.saturated + faults.invalid, 0u);

            std::vector<std::uint8_t> written(bytes.size() + 1, 0x5a);
            conversionOf(type.type, slots).store(rows, offset, frames, reinterpret_cast<std::byte*>(written.data()));
            for (std::size_t at = 0; at < bytes.size(); at += type.bytes) {
                // The fourth byte of 24 bits is sign extension.
                const std::int32_t sample = integerAt(&bytes[at], type.used);
                EXPECT_EQ(std::memcmp(&written[at], &sample, type.bytes), 0);
            }
            EXPECT_EQ(written.back(), 0x5a);
        });
    }
}

TEST(Interleave, FloatsAreRoundedAndCounted)
{
    Random random(2);
    forEachShape([&](std::size_t slots, std::size_t frames, std::size_t offset) {
        std::vector<float> samples(slots * frames);
        for (float& sample : samples) sample = hostileFloat(random);
        std::int32_t rows[8][kRow]{};
        SampleFaults faults;
        SampleFaults expectedFaults;
        conversionOf(SampleType::Float32, slots)
            .load(reinterpret_cast<const std::byte*>(samples.data()), frames, rows, offset, faults);
        for (std::size_t i = 0; i < frames; ++i) {
            for (std::size_t slot = 0; slot < slots; ++slot) {
                const float sample = samples[i * slots + slot];
                EXPECT_EQ(rows[slot][offset + i], integerOf(sample, expectedFaults)) << sample;
            }
        }
        EXPECT_EQ(faults.saturated, expectedFaults.saturated);
        EXPECT_EQ(faults.invalid, expectedFaults.invalid);

        std::vector<float> written(samples.size());
        conversionOf(SampleType::Float32, slots)
            .store(rows, offset, frames, reinterpret_cast<std::byte*>(written.data()));
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t slot = 0; slot < slots; ++slot)
                EXPECT_EQ(written[i * slots + slot], static_cast<float>(rows[slot][offset + i]) * 0x1p-31f);
    });
}

TEST(RowLevel, IsThatOfTheSamples)
{
    Random random(3);
    for (const int shift : {0, 8, 16, 31}) {
        std::int32_t row[kRow];
        std::int32_t highest = std::numeric_limits<std::int32_t>::min();
        std::int32_t lowest = std::numeric_limits<std::int32_t>::max();
        double squares = 0.0; // exact for 24 and 16 bits
        for (std::int32_t& sample : row) {
            sample = static_cast<std::int32_t>(random.bits()) >> shift;
            highest = std::max(highest, sample);
            lowest = std::min(lowest, sample);
            squares += static_cast<double>(sample) * static_cast<double>(sample);
        }
        const zrk_tarn::RowLevel level = zrk_tarn::chosenOperations().measureRow(row);
        EXPECT_EQ(level.highest, highest);
        EXPECT_EQ(level.lowest, lowest);
        if (shift > 0) {
            EXPECT_EQ(level.squares, squares);
        }
    }
}
