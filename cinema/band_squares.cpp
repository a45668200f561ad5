// Sums of squared subbands, for meters.
// SPDX-License-Identifier: MIT
#include "cinema/band_squares.h"

#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

void addSquares(const float (&subbands)[64], float trace, float (&sums)[64]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    const Floats<kWidth> zero = broadcast<kWidth>(0.0f);
    const Floats<kWidth> least = broadcast<kWidth>(trace);
    for (int band = 0; band < 64; band += kWidth) {
        const Floats<kWidth> value = load<kWidth>(subbands + band);
        const Floats<kWidth> kept = select(least <= abs(value), value, zero);
        store(sums + band, load<kWidth>(sums + band) + kept * kept);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
