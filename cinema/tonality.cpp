// Tonal blocks, stationary groups, and the neighbours of the dominant group.
// SPDX-License-Identifier: MIT
#include "cinema/tonality.h"

#include "cinema/dominant_bands.h"
#include "lanes/lanes.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
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

/// True where a value is within the relative tolerance of its mean; false for zero.
Ints<16> isStationary(const Floats<16>& average, const Floats<16>& value, float tolerance) noexcept
{
    // For a zero value any difference but zero gives infinity; 1 avoids a slow subnormal difference.
    const Ints<16> silent = value == broadcast<16>(0.0f);
    const Floats<16> difference = select(silent, broadcast<16>(1.0f), average - value);
    return abs(difference / value) < broadcast<16>(tolerance);
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

    // The dominant bands of the louder channels, as indices of both rows.
    std::int32_t index[16];
    store(index,
          indicesOfDominantBands(engine) + ((load<16>(engine.peakL) <= load<16>(engine.peakR)) & broadcast<16>(64)));
    const Ints<16> held = isStationary(lookedUp<128>(engine.subbandAvg[0], index),
                                       lookedUp<128>(engine.subband[0], index), engine.stationaryTolerance);
    if (!any(held)) return;

    const auto hold = [&](const float(&previous)[16], float(&peak)[16]) {
        store(peak, select(held, load<16>(previous), load<16>(peak)));
    };
    hold(engine.prevPeakL, engine.peakL);
    hold(engine.prevPeakR, engine.peakR);
    hold(engine.prevPeakSum, engine.peakSum);
    hold(engine.prevPeakDiff, engine.peakDiff);
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

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
