// Tests of engine/region_matrices.cpp.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

TEST(RegionMatrices, MatricesHaveTheirValuesAndSignsOfZero)
{
    struct Row
    {
        const float* matrix;
        float values[12];
    };
    const Row rows[] = {
        {ZRKTarn::MATRIX15, {0.86f, -0.254f, 0.354f, 0.354f, -0.254f, 0.254f, 0.5f, -0.5f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX25,
         {0.354f, -0.354f, 0.707f, 0.707f, -0.354f, 0.354f, 0.354f, -0.354f, 0.0f, 0.0f, 0.354f, -0.354f}},
        {ZRKTarn::MATRIX35, {0.254f, -0.254f, 0.354f, 0.354f, -0.254f, 0.86f, 0.0f, 0.0f, 0.0f, 0.0f, 0.5f, -0.5f}},
        {ZRKTarn::MATRIX45, {1.0f, 0.0f, 0.0f, 0.5f, 0.0f, 0.707f, 0.0f, -0.0f, 0.0f, 0.0f, 0.0f, -0.354f}},
        {ZRKTarn::MATRIX55, {0.707f, 0.0f, 0.5f, 0.5f, 0.0f, 0.707f, 0.354f, -0.354f, 0.0f, 0.0f, 0.354f, -0.354f}},
        {ZRKTarn::MATRIX65, {0.707f, 0.0f, 0.5f, 0.0f, 0.0f, 1.0f, 0.354f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX75, {0.077f, 0.154f, 0.077f, 0.154f, 0.154f, 0.308f, 1.0f, -0.414f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX85, {0.154f, 0.154f, 0.25f, 0.25f, 0.154f, 0.154f, 0.5f, -0.5f, 0.0f, 0.0f, 0.5f, -0.5f}},
        {ZRKTarn::MATRIX95, {0.308f, 0.154f, 0.154f, 0.077f, 0.154f, 0.077f, 0.0f, 0.0f, 0.0f, 0.0f, 0.414f, -1.0f}},
        {ZRKTarn::MATRIX16, {0.86f, -0.254f, 0.354f, 0.354f, -0.254f, 0.254f, 0.5f, -0.5f, 0.0f, -0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX26,
         {0.354f, -0.354f, 0.707f, 0.707f, -0.354f, 0.354f, 0.25f, -0.25f, 0.354f, -0.354f, 0.25f, -0.25f}},
        {ZRKTarn::MATRIX36, {0.254f, -0.254f, 0.354f, 0.354f, -0.254f, 0.86f, 0.0f, 0.0f, 0.0f, -0.0f, 0.5f, -0.5f}},
        {ZRKTarn::MATRIX46, {1.0f, 0.0f, 0.0f, 0.5f, 0.0f, 0.707f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.354f}},
        {ZRKTarn::MATRIX56, {0.707f, 0.0f, 0.5f, 0.5f, 0.0f, 0.707f, 0.354f, -0.354f, 0.45f, -0.45f, 0.354f, -0.354f}},
        {ZRKTarn::MATRIX66, {0.707f, 0.0f, 0.5f, 0.0f, 0.0f, 1.0f, 0.354f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX76, {0.077f, 0.154f, 0.077f, 0.154f, 0.154f, 0.308f, 1.0f, -0.414f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX86, {0.154f, 0.154f, 0.25f, 0.25f, 0.154f, 0.154f, 0.0f, 0.0f, 0.707f, -0.707f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX96, {0.308f, 0.154f, 0.154f, 0.077f, 0.154f, 0.077f, 0.0f, 0.0f, 0.0f, 0.0f, 0.414f, -1.0f}},
    };
    for (const Row& row : rows) EXPECT_EQ(0, std::memcmp(row.matrix, row.values, sizeof row.values)) << &row - rows;
}

TEST(RegionMatrices, RightRegionsMirrorLeftRegions)
{
    const auto expectMirror = [](const float* left, const float* right) {
        for (const auto& [a, b] : {std::pair{0, 5}, {1, 4}, {2, 3}, {3, 2}, {4, 1}, {5, 0}})
            EXPECT_EQ(left[a], right[b]) << "element " << a;
    };
    expectMirror(ZRKTarn::MATRIX15, ZRKTarn::MATRIX35);
    expectMirror(ZRKTarn::MATRIX25, ZRKTarn::MATRIX25);
    expectMirror(ZRKTarn::MATRIX45, ZRKTarn::MATRIX65);
    expectMirror(ZRKTarn::MATRIX55, ZRKTarn::MATRIX55);
    expectMirror(ZRKTarn::MATRIX75, ZRKTarn::MATRIX95);
    expectMirror(ZRKTarn::MATRIX85, ZRKTarn::MATRIX85);
    expectMirror(ZRKTarn::MATRIX16, ZRKTarn::MATRIX36);
    expectMirror(ZRKTarn::MATRIX26, ZRKTarn::MATRIX26);
    expectMirror(ZRKTarn::MATRIX46, ZRKTarn::MATRIX66);
    expectMirror(ZRKTarn::MATRIX56, ZRKTarn::MATRIX56);
    expectMirror(ZRKTarn::MATRIX76, ZRKTarn::MATRIX96);
    expectMirror(ZRKTarn::MATRIX86, ZRKTarn::MATRIX86);
}
