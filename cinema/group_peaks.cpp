#include "cinema/group_peaks.h"

#include "cinema/smoothing.h"

#include <algorithm>
#include <cmath>

namespace zrk_tarn
{

namespace
{

constexpr float kRoot2 = 1.4142135f;

/// The group of the largest value and that value; zeros give group 0.
struct Largest
{
    int group;
    float value;
};

Largest largestOf(const float (&measure)[16]) noexcept
{
    Largest largest{0, 0.0f};
    for (int g = 0; g < 16; ++g)
        if (measure[g] > largest.value) largest = {g, measure[g]};
    return largest;
}

} // namespace

void startMeasures(ZRKTarn& engine) noexcept
{
    std::copy_n(engine.thresBands, 16, engine.thres);
    std::copy_n(engine.midThresBands, 16, engine.midThres);
    std::copy_n(engine.slowThresBands, 16, engine.slowThres);
    std::copy_n(engine.peakL, 16, engine.prevPeakL);
    std::copy_n(engine.peakR, 16, engine.prevPeakR);
    std::copy_n(engine.peakSum, 16, engine.prevPeakSum);
    std::copy_n(engine.peakDiff, 16, engine.prevPeakDiff);
}

void findGroupPeaks(ZRKTarn& engine) noexcept
{
    std::int32_t& b = engine.bandIndex;
    b = 0;
    for (std::int32_t& g = engine.groupIndex = 0; g < 16; ++g) {
        engine.peakTotal[g] = 0.0f;
        engine.peakBand[g] = b;
        for (const std::int32_t end = b + engine.bandCount[g]; b < end; ++b) {
            const float l = engine.subband[0][b];
            const float r = engine.subband[1][b];
            const float total = std::fabs(l) + std::fabs(r);
            if (total > engine.peakTotal[g]) {
                engine.peakTotal[g] = total;
                engine.peakBand[g] = b;
                engine.peakL[g] = std::fabs(l);
                engine.peakR[g] = std::fabs(r);
                engine.peakSum[g] = std::fabs(l + r) / kRoot2;
                engine.peakDiff[g] = std::fabs(l - r) / kRoot2;
            }
        }
    }
}

void findDominantGroup(ZRKTarn& engine) noexcept
{
    const Largest left = largestOf(engine.peakL);
    const Largest right = largestOf(engine.peakR);
    engine.dominantGroup = left.value > right.value ? left.group : right.group;
}

void smoothGroupPowers(ZRKTarn& engine) noexcept
{
    for (int g = 0; g < 16; ++g) {
        smooth(engine.power, engine.peakL[g], engine.powL[g]);
        smooth(engine.power, engine.peakR[g], engine.powR[g]);
        smooth(engine.power, engine.peakSum[g], engine.powSum[g]);
        smooth(engine.power, engine.peakDiff[g], engine.powDiff[g]);
    }
}

} // namespace zrk_tarn
