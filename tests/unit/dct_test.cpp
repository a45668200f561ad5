#include "filterbank/cos_mod.h"
#include "tests/reference/reference_filterbank.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

namespace
{

using Vector = std::vector<float>;
using Kernel = void (*)(int, float*, float*, float*);

/// The definitions, in double.
double definedDct3(const Vector& x, std::size_t k)
{
    double sum = 0.0;
    const auto n = static_cast<double>(x.size());
    const auto odd = static_cast<double>(2 * k + 1);
    for (std::size_t m = 0; m < x.size(); ++m)
        sum += static_cast<double>(x[m]) * std::cos(std::numbers::pi * static_cast<double>(m) * odd / (2.0 * n));
    return sum;
}

double definedDct4(const Vector& x, std::size_t k)
{
    double sum = 0.0;
    const auto n = static_cast<double>(x.size());
    const auto odd = static_cast<double>(2 * k + 1);
    for (std::size_t m = 0; m < x.size(); ++m)
        sum +=
            static_cast<double>(x[m]) * std::cos(std::numbers::pi * static_cast<double>(2 * m + 1) * odd / (4.0 * n));
    return sum;
}

Vector noise(std::size_t n, std::uint64_t seed)
{
    tests::Random random(seed);
    Vector x(n);
    for (float& value : x) value = static_cast<float>(random.uniform());
    return x;
}

Vector impulse(std::size_t n)
{
    Vector x(n, 0.0f);
    x[0] = 1.0f;
    return x;
}

Vector run(Kernel kernel, float* table, Vector in)
{
    Vector out(in.size(), NAN);
    kernel(static_cast<int>(in.size()), table, out.data(), in.data());
    return out;
}

bool sameBits(const Vector& a, const Vector& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

/// Rounding of single-precision sums of n products of magnitude 1 and scales of up to 41.
constexpr double kRounding = 2e-5;

class Dct : public testing::Test
{
protected:
    Dct()
    {
        cosModTablesInit();
        reference::cosModTablesInit();
    }
};

} // namespace

TEST_F(Dct, Dct3KernelsGiveTheDefinition)
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

TEST_F(Dct, Dct4KernelsGiveTheDefinition)
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

TEST_F(Dct, KernelsGiveTheReferencesBits)
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

TEST_F(Dct, VariantsOfATransformGiveTheSameBits)
{
    const Vector short16 = noise(16, 5);
    const Vector long32 = noise(32, 6);
    EXPECT_TRUE(sameBits(run(DCT2_3_X, dct3Table16, short16), run(DCT2_3, dct3Table16, short16)));
    EXPECT_TRUE(sameBits(run(DCT4_3_X, dct4Table16, short16), run(DCT4_3, dct4Table16, short16)));
    EXPECT_TRUE(sameBits(run(DCT2_2, dct3Table32, long32), run(DCT2_2_X, dct3Table32, long32)));
}

TEST_F(Dct, PairedKernelGivesBothTransforms)
{
    Vector in1 = noise(16, 7);
    Vector in2 = noise(16, 8);
    Vector out1(16);
    Vector out2(16);
    DCT2_3_XX(16, dct3Table16, out1.data(), in1.data(), out2.data(), in2.data());
    EXPECT_TRUE(sameBits(out1, run(DCT2_3_X, dct3Table16, in1)));
    EXPECT_TRUE(sameBits(out2, run(DCT2_3_X, dct3Table16, in2)));
}

TEST_F(Dct, ImpulseGivesOnesInDct3)
{
    for (const Kernel kernel : {DCT2_3_X, DCT2_3}) EXPECT_EQ(run(kernel, dct3Table16, impulse(16)), Vector(16, 1.0f));
    for (const Kernel kernel : {DCT2_2, DCT2_2_X}) EXPECT_EQ(run(kernel, dct3Table32, impulse(32)), Vector(32, 1.0f));
}

TEST_F(Dct, ImpulsesGiveOnesInThePairedDct3)
{
    Vector in = impulse(16);
    Vector out1(16);
    Vector out2(16);
    DCT2_3_XX(16, dct3Table16, out1.data(), in.data(), out2.data(), in.data());
    EXPECT_EQ(out1, Vector(16, 1.0f));
    EXPECT_EQ(out2, Vector(16, 1.0f));
}

TEST_F(Dct, ImpulseGivesTheFirstCosineInDct4)
{
    const auto expectCosine = [](const Vector& out) {
        for (std::size_t k = 0; k < out.size(); ++k)
            EXPECT_NEAR(out[k], definedDct4(impulse(out.size()), k), kRounding);
    };
    for (const Kernel kernel : {DCT4_3_X, DCT4_3}) expectCosine(run(kernel, dct4Table16, impulse(16)));
    expectCosine(run(DCT4_2, dct4Table32, impulse(32)));
}

TEST_F(Dct, DirectKernelsOfSizeOneWriteNothing)
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

TEST_F(Dct, RecursiveKernelsOfSizeOneWriteNothing)
{
    Vector in = noise(32, 9);
    for (const Kernel kernel : {DCT2_2, DCT2_2_X, DCT4_2}) {
        float out = 42.0f;
        kernel(1, dct4Table32, &out, in.data());
        EXPECT_EQ(out, 42.0f);
    }
}

TEST_F(Dct, SmallSizesReadABlockOfTheirSize)
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

// --- The 64-point transforms
// -------------------------------------------------------------------------------------------

namespace
{

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

TEST_F(Dct, Transform64GivesTheDefinition)
{
    const Vector in = noise(64, 11);
    const Vector out = transform(in);
    for (std::size_t k = 0; k < 64; ++k) EXPECT_NEAR(out[k], definedDct4(in, k), 10.0 * kRounding);
}

TEST_F(Dct, Transform64OfAnImpulseIsTheFirstCosine)
{
    const Vector out = transformOfPairSums(impulse(64));
    for (std::size_t k = 0; k < 64; ++k) EXPECT_NEAR(out[k], definedDct4(impulse(64), k), kRounding);
}

TEST_F(Dct, ThreeFormsOfTransform64GiveTheSameBits)
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

TEST_F(Dct, Transform64AppliedTwiceReturns32TimesTheInput)
{
    const Vector in = noise(64, 12);
    const Vector back = transform(transform(in));
    for (std::size_t k = 0; k < 64; ++k) EXPECT_NEAR(back[k], 32.0f * in[k], 2e-4);
}

TEST_F(Dct, Transform64OfZerosIsZero)
{
    EXPECT_EQ(transform(Vector(64, 0.0f)), Vector(64, 0.0f));
    EXPECT_EQ(transformOfPairSums(Vector(64, 0.0f)), Vector(64, 0.0f));
}

TEST_F(Dct, Transform64WorksInPlace)
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
