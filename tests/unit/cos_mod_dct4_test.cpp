// Tests of filterbank/cos_mod_dct4.cpp.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "tests/reference/reference_filterbank.h"
#include "tests/unit/dct_definition.h"

#include <gtest/gtest.h>

using namespace tests;

namespace
{

class CosModDct4 : public testing::Test
{
protected:
    CosModDct4()
    {
        cosModTablesInit();
        reference::cosModTablesInit();
    }
};

Vector transform(Vector in)
{
    Vector out(64);
    cosModDCT4(out.data(), in.data());
    return out;
}

Vector transformOfPairSums(const Vector& x)
{
    float even[32];
    float odd[32];
    odd[0] = x[0];
    for (std::size_t j = 0; j < 32; ++j) even[j] = x[2 * j] + x[2 * j + 1];
    for (std::size_t j = 1; j < 32; ++j) odd[j] = x[2 * j - 1] + x[2 * j];
    Vector out(64);
    cosModDCT4_X1(out.data(), even, odd);
    return out;
}

} // namespace

TEST_F(CosModDct4, MatchesTheDefinition)
{
    const Vector in = noise(64, 11);
    const Vector out = transform(in);
    for (std::size_t k = 0; k < 64; ++k) EXPECT_NEAR(out[k], definedDct4(in, k), 10.0 * kRounding);
}

TEST_F(CosModDct4, ImpulseGivesTheFirstCosine)
{
    const Vector out = transformOfPairSums(impulse(64));
    for (std::size_t k = 0; k < 64; ++k) EXPECT_NEAR(out[k], definedDct4(impulse(64), k), kRounding);
}

TEST_F(CosModDct4, AllVariantsGiveTheSameBits)
{
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        Vector in = noise(64, seed);
        Vector out(64);
        cosModDCT4_X(out.data(), in.data());
        EXPECT_TRUE(sameBits(transform(in), transformOfPairSums(in)));
        EXPECT_TRUE(sameBits(transform(in), out));
        reference::cosModDCT4(out.data(), in.data());
        EXPECT_TRUE(sameBits(transform(in), out));
    }
}

TEST_F(CosModDct4, AppliedTwiceGives32TimesTheInput)
{
    const Vector in = noise(64, 12);
    const Vector back = transform(transform(in));
    for (std::size_t k = 0; k < 64; ++k) EXPECT_NEAR(back[k], 32.0f * in[k], 2e-4);
}

TEST_F(CosModDct4, ZerosGiveZeros)
{
    EXPECT_EQ(transform(Vector(64, 0.0f)), Vector(64, 0.0f));
    EXPECT_EQ(transformOfPairSums(Vector(64, 0.0f)), Vector(64, 0.0f));
}

TEST_F(CosModDct4, WorksInPlace)
{
    const Vector in = noise(64, 13);
    Vector inPlace = in;
    cosModDCT4(inPlace.data(), inPlace.data());
    EXPECT_TRUE(sameBits(inPlace, transform(in)));
    inPlace = in;
    cosModDCT4_X(inPlace.data(), inPlace.data());
    EXPECT_TRUE(sameBits(inPlace, transform(in)));

    Vector halves(64);
    for (std::size_t j = 0; j < 32; ++j) halves[j] = in[2 * j] + in[2 * j + 1];
    halves[32] = in[0];
    for (std::size_t j = 1; j < 32; ++j) halves[32 + j] = in[2 * j - 1] + in[2 * j];
    cosModDCT4_X1(halves.data(), halves.data(), halves.data() + 32);
    EXPECT_TRUE(sameBits(halves, transform(in)));
}
