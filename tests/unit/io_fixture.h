// Engines connected to a test buffer, for the tests of io/.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "tests/support/guarded_buffer.h"

#include <cstdint>

namespace tests
{

/// Sets the channel pointers to the first four slots of a buffer.
inline void connect(ZRKTarn& engine, GuardedBuffer& buffer)
{
    const std::int32_t bytes = (engine.bitsPerSample + 7) / 8;
    std::uint8_t* slots[4];
    for (int i = 0; i < 4; ++i) slots[i] = buffer.data() + i * bytes;
    engine.SetChannelPtrs(slots[0], slots[1], slots[2], slots[3]);
}

/// Sets the output pointers, as ProcessCine3 does.
inline void connectRows(ZRKTarn& engine)
{
    for (int r = 0; r < 3; ++r) engine.outputPtr[r] = engine.outputBlock[r];
}

} // namespace tests
