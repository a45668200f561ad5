// Tests of filterbank/cos_mod_tables.cpp.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "tests/reference/reference_filterbank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

namespace
{

class CosModTables : public testing::Test
{
protected:
    CosModTables() { cosModTablesInit(); }
};

const float* s1Of(const float* dct4Block, int n)
{
    return dct4Block + n * n / 2;
}

const float* s2Of(const float* dct4Block, int n)
{
    return s1Of(dct4Block, n) + n / 2;
}

} // namespace

TEST_F(CosModTables, ScalesOf64PointBlockHaveTheirReferenceValues)
{
    EXPECT_EQ(s1Of(dct4Table64, 64)[0], 0.50003767f);
    EXPECT_EQ(s1Of(dct4Table64, 64)[1], 0.500339031f);
    EXPECT_EQ(s1Of(dct4Table64, 64)[31], 0.698586702f);
    EXPECT_EQ(s2Of(dct4Table64, 64)[0], -40.7446861f);
    EXPECT_EQ(s2Of(dct4Table64, 64)[1], -13.5842905f);
    EXPECT_EQ(s2Of(dct4Table64, 64)[31], -0.715946436f);
}

TEST_F(CosModTables, ScalesOf32PointBlocksHaveTheirReferenceValues)
{
    EXPECT_EQ(s1Of(dct4Table32, 32)[0], 0.500150621f);
    EXPECT_EQ(s1Of(dct4Table32, 32)[15], 0.690372109f);
    EXPECT_EQ(s2Of(dct4Table32, 32)[0], -20.3738785f);
    EXPECT_EQ(s2Of(dct4Table32, 32)[1], -6.79675055f);
    EXPECT_EQ(dct3Table32[512], 0.500603020f);
    EXPECT_EQ(dct3Table32[526], 3.40760803f);
    EXPECT_EQ(dct3Table32[527], 10.1900129f);
}

TEST_F(CosModTables, ScalesOf16PointBlocksHaveTheirReferenceValues)
{
    const float s2[8] = {-10.1900082f, -3.40760851f,  -2.05778098f,  -1.48416448f,
                         -1.16943991f, -0.972568154f, -0.839349627f, -0.744536281f};
    const float s[8] = {0.502419293f, 0.522498608f, 0.566944063f, 0.646821797f,
                        0.788154602f, 1.06067789f,  1.72244740f,  5.10114861f};
    EXPECT_TRUE(std::equal(s2, s2 + 8, s2Of(dct4Table16, 16)));
    EXPECT_TRUE(std::equal(s, s + 8, dct3Table16 + 128));
}

TEST_F(CosModTables, FirstColumnsOfDct3MatricesAreOne)
{
    for (const auto& [matrix, h] :
         {std::pair{dct3Table16, 8}, std::pair{dct3Table32, 16}, std::pair{dct4Table16 + 64, 8},
          std::pair{dct4Table32 + 256, 16}, std::pair{dct4Table64 + 1024, 32}})
        for (int i = 0; i < h; ++i) EXPECT_EQ(matrix[i * h], 1.0f);
}

TEST_F(CosModTables, EvenAndOddMatricesOfDct3AreEqual)
{
    EXPECT_TRUE(std::equal(dct3Table16, dct3Table16 + 64, dct3Table16 + 64));
    EXPECT_TRUE(std::equal(dct3Table32, dct3Table32 + 256, dct3Table32 + 256));
}

TEST_F(CosModTables, EntriesAreCosinesOfSinglePrecisionAngles)
{
    // Volatile, so that the C library computes the cosine and not the compiler.
    float (*const volatile cosine)(float) = cosf;
    const float pi = 3.14159274f;
    for (int i = 0; i < 32; ++i) {
        for (int j = 0; j < 32; ++j) {
            const float row = static_cast<float>(2 * i + 1);
            const float odd = static_cast<float>(2 * j + 1);
            const float whole = static_cast<float>(j);
            EXPECT_EQ(dct4Table64[32 * i + j], cosine(odd * row * pi * (1.0f / 128.0f)));
            EXPECT_EQ(dct4Table64[1024 + 32 * i + j], cosine(whole * row * pi * (1.0f / 64.0f)));
        }
    }
}

TEST_F(CosModTables, MatchTheReferenceExactly)
{
    reference::cosModTablesInit();
    EXPECT_EQ(0, std::memcmp(dct4Table64, reference::dct4Table64, sizeof dct4Table64));
    EXPECT_EQ(0, std::memcmp(dct4Table32, reference::dct4Table32, sizeof dct4Table32));
    EXPECT_EQ(0, std::memcmp(dct3Table32, reference::dct3Table32, sizeof dct3Table32));
    EXPECT_EQ(0, std::memcmp(dct3Table16, reference::dct3Table16, sizeof dct3Table16));
    EXPECT_EQ(0, std::memcmp(dct4Table16, reference::dct4Table16, sizeof dct4Table16));
}

TEST_F(CosModTables, FillingAgainRepairsEntries)
{
    const std::vector<float> before(std::begin(dct4Table64), std::end(dct4Table64));
    dct4Table64[0] = -dct4Table64[0];
    dct4Table64[2111] = 0.0f;
    cosModTablesInit();
    EXPECT_EQ(0, std::memcmp(before.data(), dct4Table64, sizeof dct4Table64));
}
