// Engines whose groups have distinct measures and thresholds.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

#include <algorithm>
#include <iterator>

namespace tests
{

/// Gives every measure and threshold of every group a distinct value.
inline void numberGroups(ZRKTarn& engine)
{
    for (int g = 0; g < 16; ++g) {
        const auto value = static_cast<float>(g + 1);
        float* fields[] = {engine.peakL,  engine.peakR,   engine.peakSum, engine.peakDiff, engine.powL,     engine.powR,
                           engine.powSum, engine.powDiff, engine.thres,   engine.midThres, engine.slowThres};
        float offset = 0.0f;
        for (float* field : fields) field[g] = value + (offset += 100.0f);
    }
}

/// Whether group `to` has all values that numberGroups gave to group `from`.
inline bool holdsGroup(const ZRKTarn& engine, int to, int from)
{
    const auto value = static_cast<float>(from + 1);
    const float* fields[] = {engine.peakL, engine.peakR,    engine.peakSum,  engine.peakDiff,
                             engine.powL,  engine.powR,     engine.powSum,   engine.powDiff,
                             engine.thres, engine.midThres, engine.slowThres};
    float offset = 0.0f;
    return std::all_of(std::begin(fields), std::end(fields),
                       [&](const float* field) { return field[to] == value + (offset += 100.0f); });
}

} // namespace tests
