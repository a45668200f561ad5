// Tests of filterbank/dct_kernels.cpp.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "tests/reference/reference_filterbank.h"
#include "tests/unit/dct_definition.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <utility>

using namespace tests;

namespace
{

using Kernel = void (*)(int, float*, float*, float*);

Vector run(Kernel kernel, float* table, Vector in)
{
    Vector out(in.size(), NAN);
    kernel(static_cast<int>(in.size()), table, out.data(), in.data());
    return out;
}

class DctKernels : public testing::Test
{
protected:
    DctKernels()
    {
        cosModTablesInit();
        reference::cosModTablesInit();
    }
};

} // namespace

TEST_F(DctKernels, Dct3MatchesTheDefinition)
{
    const Vector short16 = noise(16, 1);
    const Vector long32 = noise(32, 2);
    for (const Kernel kernel : {DCT2_3_X, DCT2_3}) {
        const Vector out = run(kernel, dct3Table16, short16);
        for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(out[k], definedDct3(short16, k), kRounding);
    }
    for (const Kernel kernel : {DCT2_2, DCT2_2_X}) {
        const Vector out = run(kernel, dct3Table32, long32);
        for (std::size_t k = 0; k < 32; ++k) EXPECT_NEAR(out[k], definedDct3(long32, k), kRounding);
    }
}

TEST_F(DctKernels, Dct4MatchesTheDefinition)
{
    const Vector short16 = noise(16, 3);
    const Vector long32 = noise(32, 4);
    for (const Kernel kernel : {DCT4_3_X, DCT4_3}) {
        const Vector out = run(kernel, dct4Table16, short16);
        for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(out[k], definedDct4(short16, k), kRounding);
    }
    const Vector out = run(DCT4_2, dct4Table32, long32);
    for (std::size_t k = 0; k < 32; ++k) EXPECT_NEAR(out[k], definedDct4(long32, k), kRounding);
}

TEST_F(DctKernels, MatchTheReferenceExactly)
{
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        const Vector short16 = noise(16, seed);
        const Vector long32 = noise(32, seed);
        EXPECT_TRUE(sameBits(run(DCT2_3_X, dct3Table16, short16), run(reference::DCT2_3_X, dct3Table16, short16)));
        EXPECT_TRUE(sameBits(run(DCT2_3, dct3Table16, short16), run(reference::DCT2_3, dct3Table16, short16)));
        EXPECT_TRUE(sameBits(run(DCT4_3_X, dct4Table16, short16), run(reference::DCT4_3_X, dct4Table16, short16)));
        EXPECT_TRUE(sameBits(run(DCT4_3, dct4Table16, short16), run(reference::DCT4_3, dct4Table16, short16)));
        EXPECT_TRUE(sameBits(run(DCT2_2, dct3Table32, long32), run(reference::DCT2_2, dct3Table32, long32)));
        EXPECT_TRUE(sameBits(run(DCT2_2_X, dct3Table32, long32), run(reference::DCT2_2_X, dct3Table32, long32)));
        EXPECT_TRUE(sameBits(run(DCT4_2, dct4Table32, long32), run(reference::DCT4_2, dct4Table32, long32)));
    }
}

TEST_F(DctKernels, MatchTheReferenceExactlyAtEverySize)
{
    constexpr std::pair<Kernel, Kernel> kKernels[] = {{DCT2_3_X, reference::DCT2_3_X},
                                                      {DCT2_3, reference::DCT2_3},
                                                      {DCT4_3_X, reference::DCT4_3_X},
                                                      {DCT4_3, reference::DCT4_3}};
    for (std::size_t n = 1; n <= 16; ++n) {
        Vector table = noise(2 * (n / 2) * (n / 2) + n, n);
        const Vector in = noise(n, n + 100);
        for (const auto& [kernel, referenceKernel] : kKernels)
            EXPECT_TRUE(sameBits(run(kernel, table.data(), in), run(referenceKernel, table.data(), in))) << n;

        Vector in1 = in;
        Vector in2 = noise(n, n + 200);
        Vector out1(n, NAN);
        Vector out2(n, NAN);
        DCT2_3_XX(static_cast<int>(n), table.data(), out1.data(), in1.data(), out2.data(), in2.data());
        EXPECT_TRUE(sameBits(out1, run(reference::DCT2_3_X, table.data(), in1))) << n;
        EXPECT_TRUE(sameBits(out2, run(reference::DCT2_3_X, table.data(), in2))) << n;
    }
}

TEST_F(DctKernels, VariantsGiveTheSameBits)
{
    const Vector short16 = noise(16, 5);
    const Vector long32 = noise(32, 6);
    EXPECT_TRUE(sameBits(run(DCT2_3_X, dct3Table16, short16), run(DCT2_3, dct3Table16, short16)));
    EXPECT_TRUE(sameBits(run(DCT4_3_X, dct4Table16, short16), run(DCT4_3, dct4Table16, short16)));
    EXPECT_TRUE(sameBits(run(DCT2_2, dct3Table32, long32), run(DCT2_2_X, dct3Table32, long32)));
}

TEST_F(DctKernels, PairedKernelMatchesTwoSingleOnes)
{
    Vector in1 = noise(16, 7);
    Vector in2 = noise(16, 8);
    Vector out1(16);
    Vector out2(16);
    DCT2_3_XX(16, dct3Table16, out1.data(), in1.data(), out2.data(), in2.data());
    EXPECT_TRUE(sameBits(out1, run(DCT2_3_X, dct3Table16, in1)));
    EXPECT_TRUE(sameBits(out2, run(DCT2_3_X, dct3Table16, in2)));
}

TEST_F(DctKernels, Dct3OfAnImpulseIsOne)
{
    for (const Kernel kernel : {DCT2_3_X, DCT2_3}) EXPECT_EQ(run(kernel, dct3Table16, impulse(16)), Vector(16, 1.0f));
    for (const Kernel kernel : {DCT2_2, DCT2_2_X}) EXPECT_EQ(run(kernel, dct3Table32, impulse(32)), Vector(32, 1.0f));
}

TEST_F(DctKernels, PairedDct3OfImpulsesIsOne)
{
    Vector in = impulse(16);
    Vector out1(16);
    Vector out2(16);
    DCT2_3_XX(16, dct3Table16, out1.data(), in.data(), out2.data(), in.data());
    EXPECT_EQ(out1, Vector(16, 1.0f));
    EXPECT_EQ(out2, Vector(16, 1.0f));
}

TEST_F(DctKernels, Dct4OfAnImpulseIsTheFirstCosine)
{
    const auto expectCosine = [](const Vector& out) {
        for (std::size_t k = 0; k < out.size(); ++k)
            EXPECT_NEAR(out[k], definedDct4(impulse(out.size()), k), kRounding);
    };
    for (const Kernel kernel : {DCT4_3_X, DCT4_3}) expectCosine(run(kernel, dct4Table16, impulse(16)));
    expectCosine(run(DCT4_2, dct4Table32, impulse(32)));
}

TEST_F(DctKernels, DirectKernelsOfSize1WriteNothing)
{
    for (const Kernel kernel : {DCT2_3_X, DCT2_3, DCT4_3_X, DCT4_3}) {
        float in = 1.0f;
        float out = 42.0f;
        kernel(1, dct3Table16, &out, &in);
        EXPECT_EQ(out, 42.0f);
    }
    float in = 1.0f;
    float out[2] = {42.0f, 43.0f};
    DCT2_3_XX(1, dct3Table16, &out[0], &in, &out[1], &in);
    EXPECT_EQ(out[0], 42.0f);
    EXPECT_EQ(out[1], 43.0f);
}

TEST_F(DctKernels, RecursiveKernelsOfSize1WriteNothing)
{
    Vector in = noise(32, 9);
    for (const Kernel kernel : {DCT2_2, DCT2_2_X, DCT4_2}) {
        float out = 42.0f;
        kernel(1, dct4Table32, &out, in.data());
        EXPECT_EQ(out, 42.0f);
    }
}

TEST_F(DctKernels, SmallSizesUseABlockOfTheirSize)
{
    // A DCT-IV block of size 4: C1, C2, S1, S2.
    const auto cosine = [](double turns) { return static_cast<float>(std::cos(std::numbers::pi * turns)); };
    const auto sine = [](double turns) { return static_cast<float>(std::sin(std::numbers::pi * turns)); };
    float block[12];
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) {
            block[2 * i + j] = cosine((2 * i + 1) * (2 * j + 1) / 8.0);
            block[4 + 2 * i + j] = cosine((2 * i + 1) * j / 4.0);
        }
        block[8 + i] = 1.0f / (2.0f * cosine((2 * i + 1) / 16.0));
        block[10 + i] = -1.0f / (2.0f * sine((2 * i + 1) / 16.0));
    }
    const Vector in = noise(4, 10);
    for (const Kernel kernel : {DCT4_3_X, DCT4_3}) {
        const Vector out = run(kernel, block, in);
        for (std::size_t k = 0; k < 4; ++k) EXPECT_NEAR(out[k], definedDct4(in, k), kRounding);
    }
}
