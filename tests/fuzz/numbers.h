// Random floats of several kinds.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/random.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>

namespace fuzz
{

/// A number of a kind: random bits, round, subnormal, near underflow, special, up to 1, or up to 2^42. Round numbers
/// hit the bounds of comparisons.
inline float numberOf(std::uint8_t kind, tests::Random& random)
{
    const auto mantissa = static_cast<float>(random.uniform());
    switch (kind % 8) {
    case 0:
        return std::bit_cast<float>(random.bits());
    case 1: {
        constexpr float kRound[] = {0.0f, -0.0f, 0.25f, 0.5f, 1.0f, 2.0f, 4.0f, 12.0f, 28.0f, 0x1p20f, 0.001f, 0.0001f};
        const auto only = static_cast<std::size_t>(kind) / 8;
        return only < std::size(kRound) ? kRound[only] : random.oneOf(kRound);
    }
    case 2:
        return std::ldexp(mantissa, -126 - static_cast<int>(random.below(24)));
    case 3:
        return std::ldexp(mantissa, -100 + static_cast<int>(random.below(8)));
    case 4: {
        constexpr float kEnds[] = {std::numeric_limits<float>::infinity(),
                                   -std::numeric_limits<float>::infinity(),
                                   std::numeric_limits<float>::quiet_NaN(),
                                   std::numeric_limits<float>::max(),
                                   1.0f,
                                   -1.0f,
                                   0x1p31f,
                                   -0x1p31f};
        return random.oneOf(kEnds);
    }
    case 5:
        return mantissa;
    case 6:
        return std::fabs(std::ldexp(mantissa, static_cast<int>(kind / 8)));
    default:
        return std::ldexp(mantissa, static_cast<int>(kind / 8) + 10);
    }
}

} // namespace fuzz
