// The peak measures of every group.
// SPDX-License-Identifier: MIT
#include "cinema/group_peaks.h"

#include "cinema/dominant_bands.h"
#include "cinema/largest.h"
#include "lanes/lanes.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr float kRoot2 = 1.4142135f;

void copyRow(const float (&from)[16], float (&to)[16]) noexcept
{
    store(to, load<16>(from));
}

} // namespace

void startMeasures(ZRKTarn& engine) noexcept
{
    copyRow(engine.thresBands, engine.thres);
    copyRow(engine.midThresBands, engine.midThres);
    copyRow(engine.slowThresBands, engine.slowThres);
    copyRow(engine.peakL, engine.prevPeakL);
    copyRow(engine.peakR, engine.prevPeakR);
    copyRow(engine.peakSum, engine.prevPeakSum);
    copyRow(engine.peakDiff, engine.prevPeakDiff);
}

void measureGroupPeaks(ZRKTarn& engine) noexcept
{
    std::int32_t band[16];
    store(band, indicesOfDominantBands(engine));
    const Floats<16> left = lookedUp<64>(engine.subband[0], band);
    const Floats<16> right = lookedUp<64>(engine.subband[1], band);
    const Ints<16> found = broadcast<16>(0.0f) < load<16>(engine.peakTotal);
    const auto storeFound = [&](const Floats<16>& measure, float(&peak)[16]) {
        store(peak, select(found, measure, load<16>(peak)));
    };
    storeFound(abs(left), engine.peakL);
    storeFound(abs(right), engine.peakR);
    storeFound(abs(left + right) / broadcast<16>(kRoot2), engine.peakSum);
    storeFound(abs(left - right) / broadcast<16>(kRoot2), engine.peakDiff);
}

void findDominantGroup(ZRKTarn& engine) noexcept
{
    const Largest left = largestOf(load<16>(engine.peakL));
    const Largest right = largestOf(load<16>(engine.peakR));
    engine.dominantGroup = left.value > right.value ? left.index : right.index;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
