// The largest of some values and its index.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/lanes.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// The largest value and its lowest index; zero and index 0 if no value is positive.
struct Largest
{
    float value;
    std::int32_t index;
};

/// The largest of some values; ignores NaN.
template <int kCount>
[[gnu::always_inline]] inline Largest largestOf(const Floats<kCount>& values) noexcept
{
    using Vector = Floats<kVectorFloats>;
    Vector lanes = broadcast<kVectorFloats>(0.0f);
    for (const auto& part : values.part) lanes = larger(Vector{{part}}, lanes);
    const float largest = largestLane(lanes);
    return {largest, largest > 0.0f ? firstTrue(values == broadcast<kCount>(largest)) : 0};
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
