#include "cinema/speed_selection.h"

#include "cinema/smoothing.h"
#include "cinema/steering.h"

#include <cmath>

namespace zrk_tarn
{

namespace
{

void smoothAtFourSpeeds(ZRKTarn& engine, int g) noexcept
{
    smooth(engine.slower, engine.steerLR[g], engine.lrSlower[g]);
    smooth(engine.slow, engine.steerLR[g], engine.lrSlow[g]);
    smooth(engine.mid, engine.steerLR[g], engine.lrMid[g]);
    smooth(engine.fast, engine.steerLR[g], engine.lrFast[g]);
    smooth(engine.slower, engine.steerFB[g], engine.fbSlower[g]);
    smooth(engine.slow, engine.steerFB[g], engine.fbSlow[g]);
    smooth(engine.mid, engine.steerFB[g], engine.fbMid[g]);
    smooth(engine.fast, engine.steerFB[g], engine.fbFast[g]);
}

void keepInFront(float& fb) noexcept
{
    if (fb < 0.0f) fb = 0.0f;
}

/// The place of the speed that the group follows, chosen by this block's unsmoothed steering.
Steering chooseSpeed(ZRKTarn& engine, int g) noexcept
{
    const float a = std::fabs(engine.steerLR[g]);
    const float f = std::fabs(engine.steerFB[g]);

    engine.usedFast = 0;
    engine.usedMid = 0;
    engine.usedSlow = 0;
    if (!(a < engine.thres[g] && f < engine.thres[g] && engine.tonalBlock == 0)) {
        engine.usedFast = 1;
        return {engine.lrFast[g], engine.fbFast[g]};
    }
    if (engine.midThres[g] <= a || engine.midThres[g] <= f) {
        engine.usedMid = 1;
        return {engine.lrMid[g], engine.fbMid[g]};
    }
    if (engine.slowThres[g] <= a || engine.slowThres[g] <= f) {
        engine.usedSlow = 1;
        return {engine.lrSlow[g], engine.fbSlow[g]};
    }
    return {engine.lrSlower[g], engine.fbSlower[g]};
}

void continueFrom(ZRKTarn& engine, int g, Steering chosen) noexcept
{
    engine.lrSlower[g] = chosen.lr;
    engine.lrSlow[g] = chosen.lr;
    engine.lrMid[g] = chosen.lr;
    engine.lrFast[g] = chosen.lr;
    engine.fbSlower[g] = chosen.fb;
    engine.fbSlow[g] = chosen.fb;
    engine.fbMid[g] = chosen.fb;
    engine.fbFast[g] = chosen.fb;
}

} // namespace

void selectSpeeds(ZRKTarn& engine) noexcept
{
    float sumLRFast = 0.0f;
    for (int g = 0; g < 16; ++g) {
        smoothAtFourSpeeds(engine, g);
        sumLRFast += engine.lrFast[g];
        if (engine.outputChannels == 3) {
            keepInFront(engine.fbSlow[g]);
            keepInFront(engine.fbMid[g]);
            keepInFront(engine.fbFast[g]);
        }
        continueFrom(engine, g, chooseSpeed(engine, g));
    }
    engine.meanLRFast = sumLRFast * 0.0625f;
}

} // namespace zrk_tarn
