// Tests of cinema/interpolation.cpp.
// SPDX-License-Identifier: MIT
#include "cinema/interpolation.h"
#include "tests/support/engine.h"
#include "tests/unit/group_position.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;
using tests::setPosition;

namespace
{

/// Interpolates, and checks the transposed elements.
void interpolate(ZRKTarn& engine)
{
    float elements[6][16];
    interpolateMatrices(engine, elements);
    for (int g = 0; g < 16; ++g)
        for (int j = 0; j < 6; ++j) EXPECT_EQ(elements[j][g], engine.groupMatrix[g][j]);
}

} // namespace

TEST(Interpolation, GridPointsGiveTheMatrixOfTheirRegion)
{
    const auto engine = engineAt(48000, 16);
    struct Point
    {
        float x;
        float y;
        int region;
    };
    // At (1, -1) the interpolation is not exact.
    const Point points[] = {{1, 1, 0}, {0, 1, 1},  {-1, 1, 2}, {1, 0, 3},
                            {0, 0, 4}, {-1, 0, 5}, {0, -1, 7}, {-1, -1, 8}};
    for (const Point& point : points) {
        for (int g = 0; g < 16; ++g) setPosition(*engine, g, point.x, point.y);
        interpolate(*engine);
        for (int g = 0; g < 16; ++g)
            for (int j = 0; j < 6; ++j)
                EXPECT_EQ(engine->groupMatrix[g][j], engine->regionMatrix[point.region][j])
                    << "region " << point.region + 1 << ", element " << j;
    }
}

TEST(Interpolation, QuadrantsAreInterpolatedBilinearly)
{
    const auto engine = engineAt(48000, 16);
    const auto m = [&](int region, int j) { return engine->regionMatrix[region - 1][j]; };
    setPosition(*engine, 0, 0.3f, 0.6f);
    setPosition(*engine, 1, -0.3f, 0.6f);
    setPosition(*engine, 2, 0.3f, -0.6f);
    setPosition(*engine, 3, -0.3f, -0.6f);
    interpolate(*engine);
    for (int j = 0; j < 6; ++j) {
        float p = m(2, j) - (m(2, j) - m(1, j)) * 0.3f;
        float q = m(5, j) - (m(5, j) - m(4, j)) * 0.3f;
        EXPECT_EQ(engine->groupMatrix[0][j], q + (p - q) * 0.6f);
        p = m(3, j) - (1 + -0.3f) * (m(3, j) - m(2, j));
        q = m(6, j) - (1 + -0.3f) * (m(6, j) - m(5, j));
        EXPECT_EQ(engine->groupMatrix[1][j], q + (p - q) * 0.6f);
        p = m(5, j) - (m(5, j) - m(4, j)) * 0.3f;
        q = m(8, j) - (m(8, j) - m(7, j)) * 0.3f;
        EXPECT_EQ(engine->groupMatrix[2][j], q + (1 + -0.6f) * (p - q));
        p = m(6, j) - (1 + -0.3f) * (m(6, j) - m(5, j));
        q = m(9, j) - (1 + -0.3f) * (m(9, j) - m(8, j));
        EXPECT_EQ(engine->groupMatrix[3][j], q + (1 + -0.6f) * (p - q));
    }
}

TEST(Interpolation, OnlyElements0To5AreWritten)
{
    const auto engine = engineAt(48000, 16);
    for (auto& row : engine->groupMatrix) std::fill(std::begin(row), std::end(row), 42.0f);
    interpolate(*engine);
    for (const auto& row : engine->groupMatrix)
        for (int j = 6; j < 12; ++j) EXPECT_EQ(row[j], 42.0f);
}
