// The constants of the engine but thresholds and region matrices.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"

const std::int16_t ZRKTarn::INTERNAL_BIT_DEPTH = 32;
const std::int32_t ZRKTarn::INTERNAL_SAMPLE_CEILING = 0x7fffffff;

namespace
{

/// -2^31. Volatile, so that the compiler keeps the write at load time.
std::int32_t sampleFloorAtLoad() noexcept
{
    const volatile std::uint32_t bits = 0x80000000u;
    return static_cast<std::int32_t>(bits);
}

} // namespace

std::int32_t ZRKTarn::INTERNAL_SAMPLE_FLOOR = sampleFloorAtLoad();

const float ZRKTarn::POWER[2] = {0.05f, 0.95f};
const float ZRKTarn::SLOWER[2] = {0.002f, 0.998f};
const float ZRKTarn::SLOW[2] = {0.008f, 0.992f};
const float ZRKTarn::MID[2] = {0.025f, 0.975f};
const float ZRKTarn::FAST[2] = {0.1f, 0.9f};

const std::int32_t ZRKTarn::LOOP_COUNT48[16] = {1, 1, 1, 1, 2, 2, 2, 2, 4, 4, 4, 4, 8, 8, 8, 12};
const std::int32_t ZRKTarn::LOOP_COUNT64[16] = {1, 1, 1, 1, 1, 1, 2, 2, 2, 4, 4, 4, 4, 8, 8, 20};
const std::int32_t ZRKTarn::LOOP_COUNT96[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 4, 6, 10, 32};
const std::int32_t ZRKTarn::LOOP_COUNT192[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 48};
