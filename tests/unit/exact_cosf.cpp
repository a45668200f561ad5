#include "filterbank/cos_mod.h"

#include <gtest/gtest.h>

#include <cmath>

// Stands in for a C library whose cosf always gives the nearest single-precision number, as some do. The linker hands
// calls of cosf to __wrap_cosf.

extern "C" float __real_cosf(float angle); // NOLINT: the linker's name
extern "C" float __wrap_cosf(float angle); // NOLINT: the linker's name

namespace
{

int calls = 0;
int differences = 0;

} // namespace

float __wrap_cosf(float angle)
{
    const auto nearest = static_cast<float>(std::cos(static_cast<double>(angle)));
    ++calls;
    if (nearest != __real_cosf(angle)) ++differences;
    return nearest;
}

TEST(ExactCosf, IsCalledAndNeverWhereItMakesADifference)
{
    calls = 0;
    differences = 0;
    cosModTablesInit();
    EXPECT_GT(calls, 2900);
    EXPECT_EQ(differences, 0);
    EXPECT_NE(__wrap_cosf(0x1.59934p+0f), __real_cosf(0x1.59934p+0f)) << "where a table entry depends on it";
}
