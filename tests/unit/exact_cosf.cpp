#include "filterbank/cos_mod.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

// Stands in for the cosf of other C libraries: one that always gives the nearest single-precision number, as some do,
// and one that is now and then off by one in the last place. The linker hands calls of cosf to __wrap_cosf.

extern "C" float __wrap_cosf(float angle); // NOLINT: the linker's name

namespace
{

int calls = 0;
int offEvery = 0; ///< calls; 0 for never

} // namespace

float __wrap_cosf(float angle)
{
    const auto nearest = static_cast<float>(std::cos(static_cast<double>(angle)));
    ++calls;
    return offEvery != 0 && calls % offEvery == 0 ? std::nextafter(nearest, 2.0f) : nearest;
}

// Beside them, table_bits_test.cpp looks at every entry.
TEST(OtherCosf, ThatIsExactOrNowAndThenOffChangesNoEntry)
{
    cosModTablesInit();
    const std::vector<float> filled(dct4Table64, dct4Table64 + std::size(dct4Table64));
    for (const int every : {0, 2, 3}) {
        std::fill(std::begin(dct4Table64), std::end(dct4Table64), 0.0f);
        calls = 0;
        offEvery = every;
        cosModTablesInit();
        EXPECT_GT(calls, 2900);
        EXPECT_TRUE(std::equal(filled.begin(), filled.end(), dct4Table64)) << "off in one call of " << every;
    }
}
