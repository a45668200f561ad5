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

/// The value of the group for the bands of one vector.
template <typename Layout, int kFirstPart, int... kLane>
[[gnu::always_inline]] inline auto spreadPart(const Floats<16>& groups, std::integer_sequence<int, kLane...>) noexcept
{
    constexpr int kWidth = Floats<16>::kWidth;
    constexpr int kPart = Layout::groupOf(kFirstPart * kWidth) / kWidth;
    constexpr int kNext = kPart + 1 < Floats<16>::kParts ? kPart + 1 : kPart;
    return shuffled<typename Floats<16>::Part>(
        groups.part[kPart], groups.part[kNext],
        std::integer_sequence<int, (Layout::groupOf(kFirstPart * kWidth + kLane) - kPart * kWidth)...>{});
}

template <typename Layout, int... kPart>
[[gnu::always_inline]] inline Floats<64> spread(const Floats<16>& groups, std::integer_sequence<int, kPart...>) noexcept
{
    constexpr std::make_integer_sequence<int, Floats<16>::kWidth> kLanes{};
    return {{spreadPart<Layout, kPart>(groups, kLanes)...}};
}

/// The value of the group for every band.
template <typename Layout>
[[gnu::always_inline]] inline Floats<64> spreadOverBands(const Floats<16>& groups) noexcept
{
    return spread<Layout>(groups, std::make_integer_sequence<int, Floats<64>::kParts>{});
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
