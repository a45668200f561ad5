#include "cinema/steering.h"

#include "cinema/smoothing.h"

namespace zrk_tarn
{

namespace
{

constexpr float kLevelFloor = 4.0f;

/// 0 for equal levels, towards 1 where the first dominates, towards -1 where the second does.
float balance(float first, float second) noexcept
{
    if (first >= second) return 1.0f - (second + kLevelFloor) / (first + kLevelFloor);
    return (first + kLevelFloor) / (second + kLevelFloor) - 1.0f;
}

} // namespace

Steering steer(float left, float right, float sum, float diff) noexcept
{
    Steering place{balance(left, right), balance(sum, diff)};
    if (place.fb < 0.0f) place.fb *= 1.5f;

    if (place.fb > 1.0f) {
        place.fb = 1.0f;
    } else if (place.fb < -1.0f) {
        place.fb = -1.0f;
        place.lr *= 2.0f;
    } else if (place.fb < 0.0f) {
        place.lr *= 1.0f - place.fb;
    }

    if (place.lr > 1.0f) place.lr = 1.0f;
    if (place.lr < -1.0f) place.lr = -1.0f;
    return place;
}

void steerBroadband(ZRKTarn& engine) noexcept
{
    const Steering place = steer(engine.avgLevelL, engine.avgLevelR, engine.avgLevelSum, engine.avgLevelDiff);
    engine.globalLR = place.lr;
    engine.globalFB = place.fb;
    smooth(engine.slower, place.lr, engine.globalLRSlower);
    smooth(engine.slower, place.fb, engine.globalFBSlower);
    smooth(engine.slow, place.lr, engine.globalLRSlow);
    smooth(engine.slow, place.fb, engine.globalFBSlow);
    smooth(engine.mid, place.lr, engine.globalLRMid);
    smooth(engine.mid, place.fb, engine.globalFBMid);
    smooth(engine.fast, place.lr, engine.globalLRFast);
    smooth(engine.fast, place.fb, engine.globalFBFast);
}

void steerGroups(ZRKTarn& engine) noexcept
{
    for (int g = 0; g < 16; ++g) {
        const Steering place = steer(engine.powL[g], engine.powR[g], engine.powSum[g], engine.powDiff[g]);
        engine.steerLR[g] = place.lr;
        engine.steerFB[g] = place.fb;
    }
}

} // namespace zrk_tarn
