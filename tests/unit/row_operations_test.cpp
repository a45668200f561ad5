// Arithmetic on rows of a block, sample by sample.
// SPDX-License-Identifier: MIT
#include "room/row_operations.h"

#include "dispatch/instruction_sets.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <vector>

namespace
{

using tests::Random;
using zrk_tarn::BassFilters;
using zrk_tarn::kBlockFrames;
using zrk_tarn::Row;
using zrk_tarn::RowOperations;
using zrk_tarn::UnroundedRow;

constexpr double kLimits[] = {0x1p15, 0x1p23, 0x1p31};

const RowOperations& operations()
{
    return zrk_tarn::chosenOperations().rows;
}

void fill(UnroundedRow& row, double limit, Random& random)
{
    for (double& sample : row) sample = limit * random.uniform();
}

bool sameBits(const UnroundedRow& a, const UnroundedRow& b)
{
    return std::memcmp(a, b, sizeof a) == 0;
}

TEST(RowOperations, WidenFindsTheLowestAndTheHighestInteger)
{
    for (const double limit : kLimits) {
        for (std::size_t place = 0; place < kBlockFrames; ++place) {
            for (const double end : {-limit, limit - 1.0}) {
                Row samples;
                for (std::size_t i = 0; i < kBlockFrames; ++i) samples[i] = static_cast<std::int32_t>(i * 5) - 100;
                samples[place] = static_cast<std::int32_t>(end > 0.0 ? end - 1.0 : end + 1.0);
                UnroundedRow values;
                EXPECT_FALSE(operations().widen(samples, limit, values));
                samples[place] = static_cast<std::int32_t>(end);
                EXPECT_TRUE(operations().widen(samples, limit, values));
                for (std::size_t i = 0; i < kBlockFrames; ++i) ASSERT_EQ(values[i], static_cast<double>(samples[i]));
            }
        }
    }
}

TEST(RowOperations, ScaleMultiplyAndAddAsAPlainLoop)
{
    Random random(1);
    for (int times = 0; times < 100; ++times) {
        Row samples;
        for (std::int32_t& sample : samples) sample = static_cast<std::int32_t>(0x1p31 * random.uniform());
        UnroundedRow a;
        UnroundedRow b;
        UnroundedRow sums;
        fill(a, 1.0, random);
        fill(b, 0x1p31, random);
        fill(sums, 0x1p31, random);
        UnroundedRow scaled;
        UnroundedRow products;
        UnroundedRow expected[3];
        for (std::size_t i = 0; i < kBlockFrames; ++i) {
            expected[0][i] = 0.70710678118654752 * static_cast<double>(samples[i]);
            expected[1][i] = a[i] * b[i];
            expected[2][i] = sums[i] + expected[1][i];
        }
        operations().scale(samples, 0.70710678118654752, scaled);
        operations().multiply(a, b, products);
        operations().addProducts(a, b, sums);
        EXPECT_TRUE(sameBits(scaled, expected[0]));
        EXPECT_TRUE(sameBits(products, expected[1]));
        EXPECT_TRUE(sameBits(sums, expected[2]));
        operations().multiply(a, b, b);
        EXPECT_TRUE(sameBits(b, expected[1])) << "in place";
    }
}

TEST(RowOperations, RoundRoundsHalfAwayFromZeroSaturatesAndCounts)
{
    for (const double limit : kLimits) {
        const double values[] = {0.0,          -0.0,         0.5,           -0.5,        0.49999999999999994,
                                 1.5,          -1.5,         2.5,           limit - 1.0, limit - 0.5,
                                 limit,        limit + 0.5,  limit * 4.0,   -limit,      -limit - 0.5,
                                 -limit - 1.0, -limit * 4.0, limit - 0.501, -1e300,      1e300};
        Random random(2);
        for (int times = 0; times < 200; ++times) {
            UnroundedRow row;
            for (double& sample : row) sample = random.chance(2) ? random.oneOf(values) : limit * random.uniform();
            std::uint64_t saturated = 0;
            Row expected;
            for (std::size_t i = 0; i < kBlockFrames; ++i) {
                // As defined: half a step is added first, which rounds the value next below a half up.
                const double rounded = std::trunc(row[i] + (row[i] < 0.0 ? -0.5 : 0.5));
                expected[i] = static_cast<std::int32_t>(std::clamp(rounded, -limit, limit - 1.0));
                saturated += rounded > limit - 1.0 || rounded < -limit ? 1u : 0u;
            }
            Row samples;
            EXPECT_EQ(operations().round(row, limit, samples), saturated);
            for (std::size_t i = 0; i < kBlockFrames; ++i) ASSERT_EQ(samples[i], expected[i]) << row[i];
        }
    }
}

/// A filter, sample by sample.
void filterPlainly(BassFilters& filters, std::size_t number, UnroundedRow& row)
{
    for (double& sample : row) {
        for (std::size_t section = 0; section < 2; ++section) {
            const double scaled = filters.b0[number] * sample;
            const double y = scaled + filters.first[section][number];
            filters.first[section][number] =
                filters.b1[number] * sample - filters.a1[number] * y + filters.second[section][number];
            filters.second[section][number] = scaled - filters.a2[number] * y;
            sample = y;
        }
    }
    for (std::size_t section = 0; section < 2; ++section)
        for (double* const state : {&filters.first[section][number], &filters.second[section][number]})
            if (std::abs(*state) < 0x1p-60) *state = 0.0;
}

TEST(RowOperations, FilterAsAPlainLoopUntilTracesBecomeZero)
{
    Random random(3);
    for (const std::size_t count : {1u, 2u, 4u, 5u}) {
        BassFilters filters{};
        for (std::size_t number = 0; number < count; ++number) {
            filters.b0[number] = 0.01 * static_cast<double>(number + 1);
            filters.b1[number] = 0.02;
            filters.a1[number] = -1.2 + 0.05 * static_cast<double>(number);
            filters.a2[number] = 0.4;
        }
        BassFilters expected = filters;
        constexpr int kLoud = 20;
        for (int block = 0; block < 60; ++block) {
            UnroundedRow rows[BassFilters::kMaxFilters]{};
            UnroundedRow plain[BassFilters::kMaxFilters]{};
            UnroundedRow* places[BassFilters::kMaxFilters];
            for (std::size_t number = 0; number < count; ++number) {
                if (block < kLoud) fill(rows[number], 0x1p31, random);
                std::copy(std::begin(rows[number]), std::end(rows[number]), plain[number]);
                places[number] = &rows[number];
                filterPlainly(expected, number, plain[number]);
            }
            operations().filter(filters, places, count);
            for (std::size_t number = 0; number < count; ++number)
                ASSERT_TRUE(sameBits(rows[number], plain[number])) << count << " filters, block " << block;
            ASSERT_EQ(std::memcmp(&filters, &expected, sizeof filters), 0) << count << " filters, block " << block;
        }
        EXPECT_EQ(filters.first[1][0], 0.0);
    }
}

TEST(RowOperations, AddSquaresOfSubbandsThatAreNotTraces)
{
    Random random(4);
    float subbands[64];
    float sums[64] = {};
    float expected[64] = {};
    for (int times = 0; times < 100; ++times) {
        for (std::size_t band = 0; band < 64; ++band) {
            const float magnitudes[] = {0.0f, 0x1p-140f, 0x1.fffffep-1f, 1.0f, 1.5f, 0x1p20f};
            subbands[band] = random.oneOf(magnitudes) * (random.chance(2) ? 1.0f : -1.0f);
            if (std::abs(subbands[band]) >= 1.0f) expected[band] += subbands[band] * subbands[band];
        }
        zrk_tarn::chosenOperations().addSquares(subbands, 1.0f, sums);
    }
    for (std::size_t band = 0; band < 64; ++band) EXPECT_EQ(sums[band], expected[band]) << band;
}

} // namespace
