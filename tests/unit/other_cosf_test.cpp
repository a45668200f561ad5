// Tests filterbank/cos_mod_tables.cpp with the cosf of other C libraries.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

// Replaces cosf, by the linker option --wrap, with one that is always correctly rounded, or that is off by one unit in
// the last place in every second or third call.

extern "C" float __wrap_cosf(float angle); // NOLINT: the linker's name

namespace
{

int calls = 0;
int callsPerError = 0; ///< 0 for no errors

} // namespace

float __wrap_cosf(float angle)
{
    const auto nearest = static_cast<float>(std::cos(static_cast<double>(angle)));
    ++calls;
    return callsPerError != 0 && calls % callsPerError == 0 ? std::nextafter(nearest, 2.0f) : nearest;
}

TEST(OtherCosf, DoesNotChangeTheTables)
{
    cosModTablesInit();
    const std::vector<float> filled(dct4Table64, dct4Table64 + std::size(dct4Table64));
    for (const int every : {0, 2, 3}) {
        std::fill(std::begin(dct4Table64), std::end(dct4Table64), 0.0f);
        calls = 0;
        callsPerError = every;
        cosModTablesInit();
        EXPECT_GT(calls, 2900);
        EXPECT_TRUE(std::equal(filled.begin(), filled.end(), dct4Table64)) << "an error in one call of " << every;
    }
}
