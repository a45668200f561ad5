// Tests of cinema/band_layouts.h.
// SPDX-License-Identifier: MIT
#include "cinema/band_layouts.h"
#include "tests/support/engine.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;

namespace
{

/// Whether the stages know the layout at compile time.
bool isKnown(const std::int32_t (&bandCount)[16])
{
    return dispatchLayout(bandCount, [](auto /*layout*/) {});
}

} // namespace

TEST(BandLayouts, OnlyTheGroupingsOfSupportedRatesAreKnown)
{
    EXPECT_TRUE(isLayout<BandLayout48>(ZRKTarn::LOOP_COUNT48));
    EXPECT_TRUE(isLayout<BandLayout64>(ZRKTarn::LOOP_COUNT64));
    EXPECT_TRUE(isLayout<BandLayout96>(ZRKTarn::LOOP_COUNT96));
    EXPECT_TRUE(isLayout<BandLayout192>(ZRKTarn::LOOP_COUNT192));
    for (const std::uint32_t rate : {32000u, 44100u, 48000u, 64000u, 88200u, 96000u, 176400u, 192000u})
        EXPECT_TRUE(isKnown(engineAt(rate, 16)->bandCount)) << rate;

    std::int32_t own[16];
    std::copy_n(ZRKTarn::LOOP_COUNT48, 16, own);
    ++own[15];
    EXPECT_FALSE(isKnown(own));
}
