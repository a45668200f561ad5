// The groupings of the 64 bands that are known at compile time.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/lanes.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// A grouping as a type; the counts must add up to 64.
template <int... kCounts>
struct BandLayout
{
    static constexpr std::int32_t kCount[16] = {kCounts...};

    static constexpr int firstOf(int group)
    {
        int first = 0;
        for (int g = 0; g < group; ++g) first += kCount[g];
        return first;
    }

    static constexpr int groupOf(int band)
    {
        int group = 0;
        while (firstOf(group + 1) <= band) ++group;
        return group;
    }
};

using BandLayout48 = BandLayout<1, 1, 1, 1, 2, 2, 2, 2, 4, 4, 4, 4, 8, 8, 8, 12>;
using BandLayout64 = BandLayout<1, 1, 1, 1, 1, 1, 2, 2, 2, 4, 4, 4, 4, 8, 8, 20>;
using BandLayout96 = BandLayout<1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 4, 6, 10, 32>;
using BandLayout192 = BandLayout<1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 48>;

template <typename Layout>
bool isLayout(const std::int32_t (&bandCount)[16]) noexcept
{
    return !any(~(load<16>(bandCount) == load<16>(Layout::kCount)));
}

/// Calls work with the layout that equals bandCount. Returns false, without a call, if bandCount is none of the four.
template <typename Work>
bool dispatchLayout(const std::int32_t (&bandCount)[16], Work work) noexcept
{
    if (isLayout<BandLayout48>(bandCount)) {
        work(BandLayout48{});
    } else if (isLayout<BandLayout96>(bandCount)) {
        work(BandLayout96{});
    } else if (isLayout<BandLayout64>(bandCount)) {
        work(BandLayout64{});
    } else if (isLayout<BandLayout192>(bandCount)) {
        work(BandLayout192{});
    } else {
        return false;
    }
    return true;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
