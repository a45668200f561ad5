#include "cinema/tonality.h"

#include <cmath>

namespace zrk_tarn
{

namespace
{

float peakOf(const ZRKTarn& engine) noexcept
{
    return engine.peakRegionL + engine.peakRegionR;
}

float restOf(const ZRKTarn& engine) noexcept
{
    return engine.restL + engine.restR;
}

/// Whether a band's value lies within the relative tolerance of its slow mean; a value of zero never does.
bool isStationary(float average, float value, float tolerance) noexcept
{
    return std::fabs((average - value) / value) < tolerance;
}

void copyGroup(ZRKTarn& engine, int from, int to) noexcept
{
    engine.peakL[to] = engine.peakL[from];
    engine.peakR[to] = engine.peakR[from];
    engine.peakSum[to] = engine.peakSum[from];
    engine.peakDiff[to] = engine.peakDiff[from];
    engine.powL[to] = engine.powL[from];
    engine.powR[to] = engine.powR[from];
    engine.powSum[to] = engine.powSum[from];
    engine.powDiff[to] = engine.powDiff[from];
    engine.thres[to] = engine.thres[from];
    engine.midThres[to] = engine.midThres[from];
    engine.slowThres[to] = engine.slowThres[from];
}

} // namespace

void detectTonalBlock(ZRKTarn& engine) noexcept
{
    const int d = engine.dominantGroup;
    const float needed = d == 0 ? 32.0f : 8.0f;
    engine.tonalBlock = peakOf(engine) > needed * restOf(engine) ? 1 : 0;
    if (engine.tonalBlock == 0) return;

    engine.peakL[d] = 0.5f * engine.levelL;
    engine.peakR[d] = 0.5f * engine.levelR;
    engine.peakSum[d] = 0.5f * engine.levelSum;
    engine.peakDiff[d] = 0.5f * engine.levelDiff;
}

void holdStationaryGroups(ZRKTarn& engine) noexcept
{
    engine.stationaryTolerance = 4.0f * restOf(engine) < peakOf(engine) ? 0.001f : 0.0001f;
    if (engine.tonalBlock != 0) return;

    for (int g = 0; g < 16; ++g) {
        const int louder = engine.peakL[g] <= engine.peakR[g] ? 1 : 0;
        const int band = engine.peakBand[g];
        if (!isStationary(engine.subbandAvg[louder][band], engine.subband[louder][band], engine.stationaryTolerance))
            continue;
        engine.peakL[g] = engine.prevPeakL[g];
        engine.peakR[g] = engine.prevPeakR[g];
        engine.peakSum[g] = engine.prevPeakSum[g];
        engine.peakDiff[g] = engine.prevPeakDiff[g];
    }
}

void spreadDominantGroup(ZRKTarn& engine) noexcept
{
    if (peakOf(engine) > 8.0f * restOf(engine)) {
        const int d = engine.dominantGroup;
        if (d > 0) copyGroup(engine, d, d - 1);
        if (d < 15) copyGroup(engine, d, d + 1);
    } else {
        copyGroup(engine, 1, 0);
    }
}

} // namespace zrk_tarn
