// Tests of lanes/subnormal_safe.h.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "filterbank/transform.h"
#include "filterbank/vector_pair_sums.h"
#include "lanes/subnormal_safe.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;

namespace
{

constexpr std::uint64_t kSeed = 7;
constexpr float kSmallestNormal = std::numeric_limits<float>::min();

/// A value near or below the smallest normal number, or zero.
float valueNearUnderflow(tests::Random& random)
{
    constexpr int kExponents[] = {-120, -124, -126, -128, -140, -149};
    const auto mantissa = static_cast<float>(random.uniform());
    return random.chance(10) ? std::copysign(0.0f, mantissa) : std::ldexp(mantissa, random.oneOf(kExponents));
}

/// A value of any magnitude.
float anyValue(tests::Random& random)
{
    return std::ldexp(static_cast<float>(random.uniform()), static_cast<int>(random.below(250)) - 149);
}

bool isSubnormal(float value)
{
    return value != 0.0f && std::fabs(value) < kSmallestNormal;
}

template <std::size_t kCount>
bool sameBits(const float (&a)[kCount], const float (&b)[kCount])
{
    return std::memcmp(a, b, sizeof a) == 0;
}

} // namespace

TEST(SubnormalSafe, SumsDifferencesAndProductsMatchSinglePrecision)
{
    tests::Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    int subnormal = 0;
    for (int turn = 0; turn < 20000 && !HasFailure(); ++turn) {
        float a[16];
        float b[16];
        for (float& value : a) value = random.chance(4) ? anyValue(random) : valueNearUnderflow(random);
        for (float& value : b) value = random.chance(3) ? anyValue(random) : valueNearUnderflow(random);
        float sums[2][16];
        float differences[2][16];
        float products[2][16];
        for (int i = 0; i < 16; ++i) {
            sums[0][i] = a[i] + b[i];
            differences[0][i] = a[i] - b[i];
            products[0][i] = a[i] * b[i];
            if (isSubnormal(differences[0][i]) || isSubnormal(products[0][i])) ++subnormal;
        }
        const auto x = valuesOf<true>(load<16>(a));
        const auto y = valuesOf<true>(load<16>(b));
        store(sums[1], singlesOf(x + y));
        store(differences[1], singlesOf(x - y));
        store(products[1], singlesOf(x * y));
        EXPECT_TRUE(sameBits(sums[0], sums[1])) << "turn " << turn;
        EXPECT_TRUE(sameBits(differences[0], differences[1])) << "turn " << turn;
        EXPECT_TRUE(sameBits(products[0], products[1])) << "turn " << turn;
    }
    EXPECT_GT(subnormal, 20000);
}

TEST(SubnormalSafe, TransformAndPairSumsMatchSinglePrecision)
{
    cosModTablesInit();
    tests::Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    int subnormal = 0;
    for (int turn = 0; turn < 300 && !HasFailure(); ++turn) {
        float even[2][3][32];
        float odd[2][3][32];
        for (int r = 0; r < 3; ++r) {
            float x[64];
            // Two rows of values near underflow, each of one magnitude, and one row of any values.
            const int magnitude = -static_cast<int>(random.below(25));
            for (float& value : x)
                value = r == 2 ? anyValue(random) : std::ldexp(static_cast<float>(random.uniform()), magnitude - 120);
            splitIntoPairSums(x, even[0][r], odd[0][r], false);
            splitIntoPairSums(x, even[1][r], odd[1][r], true);
            EXPECT_TRUE(sameBits(even[0][r], even[1][r]));
            EXPECT_TRUE(sameBits(odd[0][r], odd[1][r]));
        }
        static float out[2][3 * 1024];
        transformPairSums(3, even[0], odd[0], out[0], 1024);
        transformPairSums(3, even[0], odd[0], out[1], 1024, 7);
        EXPECT_TRUE(sameBits(out[0], out[1]));
        for (const float value : out[0]) subnormal += isSubnormal(value) ? 1 : 0;
    }
    EXPECT_GT(subnormal, 1000);
}
