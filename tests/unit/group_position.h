// Sets the steering position of a band group.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

namespace tests
{

/// Places a group: x from -1 (right) to 1 (left), y from -1 (back) to 1 (front).
inline void setPosition(ZRKTarn& engine, int g, float x, float y)
{
    engine.lrSlower[g] = x;
    engine.fbSlower[g] = y;
}

} // namespace tests
