// Tests of cinema/mixing.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/interpolation.h"
#include "cinema/mixing.h"
#include "tests/support/engine.h"
#include "tests/support/random.h"
#include "tests/unit/group_position.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;
using tests::setPosition;

namespace
{

/// Mixes with the matrices of the record.
void mix(ZRKTarn& engine)
{
    float elements[6][16];
    for (int g = 0; g < 16; ++g)
        for (int j = 0; j < 6; ++j) elements[j][g] = engine.groupMatrix[g][j];
    mixSubbands(engine, elements);
}

void interpolateAndMix(ZRKTarn& engine)
{
    float elements[6][16];
    interpolateMatrices(engine, elements);
    mixSubbands(engine, elements);
}

} // namespace

TEST(Mixing, CentredGroupHasAFrontGainOf1Point5)
{
    const auto engine = engineAt(48000, 16);
    for (int b = 0; b < 64; ++b) {
        engine->subband[0][b] = static_cast<float>(b + 1);
        engine->subband[1][b] = static_cast<float>(-2 * b);
    }
    interpolateAndMix(*engine);
    for (int b = 0; b < 64; ++b) {
        const float l = engine->subband[0][b];
        const float r = engine->subband[1][b];
        EXPECT_EQ(engine->outSubband[0][b], 0.707f * 1.5f * l + 0.0f * r);
        EXPECT_EQ(engine->outSubband[1][b], 0.0f * l + 0.707f * 1.5f * r);
        EXPECT_EQ(engine->outSubband[2][b], 0.5f * l + 0.5f * r);
    }
}

TEST(Mixing, FullyPannedGroupHasNoGain)
{
    const auto engine = engineAt(48000, 16);
    engine->subband[0][63] = 1000.0f;
    engine->subband[1][63] = 10.0f;
    setPosition(*engine, 15, 1.0f, 0.0f);
    interpolateAndMix(*engine);
    EXPECT_EQ(engine->outSubband[0][63], 1000.0f);
    EXPECT_EQ(engine->outSubband[2][63], 0.5f * 10.0f);
    EXPECT_EQ(engine->outSubband[1][63], 0.707f * 10.0f);
}

TEST(Mixing, GainIsThatOfDoublePrecisionRoundedOnce)
{
    // The known grouping and any other.
    for (const std::int32_t lastCount : {12, 11}) {
        const auto engine = engineAt(48000, 16);
        engine->bandCount[15] = lastCount;
        std::fill(std::begin(engine->subband[0]), std::end(engine->subband[0]), 1.0f);
        for (auto& matrix : engine->groupMatrix) matrix[0] = 1.0f;
        constexpr std::uint64_t kSeed = 5;
        tests::Random random(kSeed);
        SCOPED_TRACE(testing::Message() << "seed " << kSeed);
        for (int turn = 0; turn < 20000 && !HasFailure(); ++turn) {
            // Any float except NaN.
            float x[16];
            for (float& value : x) {
                const auto any = std::bit_cast<float>(random.bits());
                value = random.chance(2) ? static_cast<float>(random.uniform()) : any == any ? any : 0.0f;
            }
            for (int g = 0; g < 16; ++g) setPosition(*engine, g, x[g], 0.0f);
            mix(*engine);
            for (int g = 0, b = 0; g < 16; b += engine->bandCount[g++])
                EXPECT_EQ(engine->outSubband[0][b],
                          static_cast<float>((1.0 - std::fabs(static_cast<double>(x[g]))) * 0.5 + 1.0));
        }
    }
}

TEST(Mixing, BandsAfterTheLastGroupKeepTheirValues)
{
    const auto engine = engineAt(48000, 16);
    engine->bandCount[15] = 2;
    for (auto& row : engine->outSubband) std::fill(std::begin(row), std::end(row), 42.0f);
    mix(*engine);
    for (const auto& row : engine->outSubband)
        for (int b = 0; b < 64; ++b) EXPECT_EQ(row[b], b < 54 ? 0.0f : 42.0f);
    EXPECT_EQ(engine->bandIndex, 54);
}
