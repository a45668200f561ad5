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

TEST(RowOperations, AmplifyAndMultiplyAsPlainLoops)
{
    Random random(1);
    for (int times = 0; times < 100; ++times) {
        float samples[kBlockFrames];
        for (float& sample : samples) sample = 0x1p31f * static_cast<float>(random.uniform());
        UnroundedRow a;
        UnroundedRow b;
        fill(a, 1.0, random);
        fill(b, 0x1p31, random);
        UnroundedRow products;
        UnroundedRow expected;
        for (std::size_t i = 0; i < kBlockFrames; ++i) expected[i] = a[i] * b[i];
        operations().multiply(a, b, products);
        EXPECT_TRUE(sameBits(products, expected));
        operations().multiply(a, b, b);
        EXPECT_TRUE(sameBits(b, expected)) << "in place";

        UnroundedRow amplified;
        for (std::size_t i = 0; i < kBlockFrames; ++i) expected[i] = a[i] * 0.3 * static_cast<double>(samples[i]);
        operations().amplify(a, 0.3, samples, amplified);
        EXPECT_TRUE(sameBits(amplified, expected));
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

/// Filters with different coefficients.
BassFilters someFilters()
{
    BassFilters filters{};
    for (std::size_t place = 0; place < BassFilters::kMaxFilters; ++place) {
        filters.b0[place] = 0.01 * static_cast<double>(place + 1);
        filters.b1[place] = 0.02;
        filters.a1[place] = -1.2 + 0.05 * static_cast<double>(place);
        filters.a2[place] = 0.4;
    }
    return filters;
}

constexpr int kLoudBlocks = 20;
constexpr int kBlocks = 60;

TEST(RowOperations, FilterAsAPlainLoopUntilTracesBecomeZero)
{
    Random random(3);
    BassFilters filters = someFilters();
    BassFilters expected = filters;
    for (int block = 0; block < kBlocks; ++block) {
        UnroundedRow row{};
        if (block < kLoudBlocks) fill(row, 0x1p31, random);
        UnroundedRow plain;
        std::copy(std::begin(row), std::end(row), plain);
        filterPlainly(expected, 0, plain);
        operations().filter(filters, row);
        ASSERT_TRUE(sameBits(row, plain)) << "block " << block;
        ASSERT_EQ(std::memcmp(&filters, &expected, sizeof filters), 0) << "block " << block;
    }
    EXPECT_EQ(filters.first[1][0], 0.0);
}

TEST(RowOperations, MoveBassAsPlainLoopsUntilTracesBecomeZero)
{
    Random random(5);
    for (const std::size_t count : {0u, 2u, 4u}) {
        for (const bool isFading : {false, true}) {
            BassFilters filters = someFilters();
            BassFilters expected = filters;
            for (int block = 0; block < kBlocks; ++block) {
                Row stereo[2]{};
                UnroundedRow fronts[3]{};
                UnroundedRow surrounds[4]{};
                UnroundedRow share;
                for (double& value : share) value = isFading ? std::abs(random.uniform()) : 1.0;
                if (block < kLoudBlocks) {
                    for (Row& row : stereo)
                        for (std::int32_t& sample : row) sample = static_cast<std::int32_t>(0x1p31 * random.uniform());
                    for (UnroundedRow& row : fronts) fill(row, 0x1p31, random);
                    for (UnroundedRow& row : surrounds) fill(row, 0x1p31, random);
                }

                UnroundedRow bass[2];
                for (std::size_t side = 0; side < 2; ++side) {
                    for (std::size_t i = 0; i < kBlockFrames; ++i)
                        bass[side][i] = 0.70710678118654752 * static_cast<double>(stereo[side][i]);
                    filterPlainly(expected, BassFilters::kFronts + side, bass[side]);
                }
                const auto filtered = [&](const UnroundedRow& row, std::size_t place, const UnroundedRow* added) {
                    std::vector<double> result(std::begin(row), std::end(row));
                    UnroundedRow after;
                    std::copy(std::begin(row), std::end(row), after);
                    filterPlainly(expected, place, after);
                    for (std::size_t i = 0; i < kBlockFrames; ++i) {
                        result[i] = isFading ? row[i] + share[i] * (after[i] - row[i]) : after[i];
                        if (added != nullptr) result[i] += share[i] * (*added)[i];
                    }
                    return result;
                };
                std::vector<std::vector<double>> outputs = {filtered(fronts[0], BassFilters::kFronts + 2, &bass[0]),
                                                            filtered(fronts[1], BassFilters::kFronts + 3, &bass[1]),
                                                            filtered(fronts[2], BassFilters::kCentre, nullptr)};
                for (std::size_t channel = 0; channel < count; ++channel)
                    outputs.push_back(filtered(surrounds[channel], BassFilters::kSurrounds + channel, nullptr));

                operations().moveBass(filters, {stereo[0], stereo[1], fronts, surrounds, count, share, isFading});
                for (std::size_t output = 0; output < outputs.size(); ++output)
                    ASSERT_EQ(std::memcmp(output < 3 ? fronts[output] : surrounds[output - 3], outputs[output].data(),
                                          sizeof(UnroundedRow)),
                              0)
                        << "output " << output << " with " << count << " surround channels, block " << block;
                ASSERT_EQ(std::memcmp(&filters, &expected, sizeof filters), 0)
                    << count << " surround channels, block " << block;
            }
            EXPECT_EQ(filters.first[1][BassFilters::kCentre], 0.0);
        }
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
