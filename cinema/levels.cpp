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

    const float* const left = engine.inputHistory[0] + 1024 - kBlock;
    const float* const right = engine.inputHistory[1] + 1024 - kBlock;

    // Lanes are the four sums: |l|, |r|, |l + r| and |l - r|.
    Floats<4> sums = broadcast<4>(0.0f);
    for (int t = 0; t < kBlock; t += 4) {
        const Floats<4> l = load<4>(left + t);
        const Floats<4> r = load<4>(right + t);
        const Floats<4> a = abs(l);
        const Floats<4> b = abs(r);
        const Floats<4> c = abs(l + r);
        const Floats<4> d = abs(l - r);
        // Transposes: from four samples per magnitude to four magnitudes per sample.
        const Floats<4> acLow = lowInterleaved(a, c);
        const Floats<4> bdLow = lowInterleaved(b, d);
        const Floats<4> acHigh = highInterleaved(a, c);
        const Floats<4> bdHigh = highInterleaved(b, d);
        sums = sums + lowInterleaved(acLow, bdLow);
        sums = sums + highInterleaved(acLow, bdLow);
        sums = sums + lowInterleaved(acHigh, bdHigh);
        sums = sums + highInterleaved(acHigh, bdHigh);
    }
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
