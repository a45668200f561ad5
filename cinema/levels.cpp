#include "cinema/levels.h"

#include "cinema/smoothing.h"

#include <cmath>

namespace zrk_tarn
{

void measureLevels(ZRKTarn& engine) noexcept
{
    constexpr int kBlock = 64;
    constexpr float kMean = 1.0f / kBlock;
    constexpr float kBlockTimesRoot2 = 90.50967f;

    const float* const left = engine.inputHistory[0] + 1024 - kBlock;
    const float* const right = engine.inputHistory[1] + 1024 - kBlock;

    float sumL = 0.0f;
    float sumR = 0.0f;
    float sumSum = 0.0f;
    float sumDiff = 0.0f;
    for (int t = 0; t < kBlock; ++t) {
        sumL += std::fabs(left[t]);
        sumR += std::fabs(right[t]);
        sumSum += std::fabs(left[t] + right[t]);
        sumDiff += std::fabs(left[t] - right[t]);
    }

    engine.levelL = sumL * kMean;
    engine.levelR = sumR * kMean;
    engine.levelSum = sumSum / kBlockTimesRoot2;
    engine.levelDiff = sumDiff / kBlockTimesRoot2;
    smooth(engine.broadbandPair, engine.levelL, engine.avgLevelL);
    smooth(engine.broadbandPair, engine.levelR, engine.avgLevelR);
    smooth(engine.broadbandPair, engine.levelSum, engine.avgLevelSum);
    smooth(engine.broadbandPair, engine.levelDiff, engine.avgLevelDiff);
}

} // namespace zrk_tarn
