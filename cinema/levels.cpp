// Broadband levels.
// SPDX-License-Identifier: MIT
#include "cinema/levels.h"

#include "cinema/smoothing.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

void measureLevels(ZRKTarn& engine) noexcept
{
    constexpr int kBlock = 64;
    constexpr float kMean = 1.0f / kBlock;
    constexpr float kBlockTimesRoot2 = 90.50967f;

    const float* left = engine.inputHistory[0] + 1024 - kBlock;
    const float* right = engine.inputHistory[1] + 1024 - kBlock;

    // The magnitudes |l|, |r|, |l + r| and |l - r| of every sample. In each part of kVectorFloats samples, quad q of
    // column k belongs to sample 4 q + k.
    constexpr int kQuads = kVectorFloats / 4;
    alignas(kVectorBytes) float magnitudes[kBlock / kVectorFloats][4][kQuads][4];
#pragma GCC unroll 1
    for (auto& part : magnitudes) {
        const auto l = load<kVectorFloats>(left);
        const auto r = load<kVectorFloats>(right);
        const Quads<kVectorFloats> quads = transposedQuads(abs(l), abs(r), abs(l + r), abs(l - r));
        for (int k = 0; k < 4; ++k) store(part[k][0], quads.column[k]);
        left += kVectorFloats;
        right += kVectorFloats;
    }

    // Lanes are the four sums.
    Floats<4> sums = broadcast<4>(0.0f);
#pragma GCC unroll 1
    for (const auto& part : magnitudes)
        for (int q = 0; q < kQuads; ++q)
            for (int k = 0; k < 4; ++k) sums = sums + load<4>(part[k][q]);
    float sum[4];
    store(sum, sums);

    engine.levelL = sum[0] * kMean;
    engine.levelR = sum[1] * kMean;
    engine.levelSum = sum[2] / kBlockTimesRoot2;
    engine.levelDiff = sum[3] / kBlockTimesRoot2;
    smooth(engine.broadbandPair, engine.levelL, engine.avgLevelL);
    smooth(engine.broadbandPair, engine.levelR, engine.avgLevelR);
    smooth(engine.broadbandPair, engine.levelSum, engine.avgLevelSum);
    smooth(engine.broadbandPair, engine.levelDiff, engine.avgLevelDiff);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
