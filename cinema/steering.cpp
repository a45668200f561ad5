#include "cinema/steering.h"

#include "cinema/smoothing.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr float kLevelFloor = 4.0f;

/// Places of groups side by side.
struct Steerings
{
    Floats<16> lr;
    Floats<16> fb;
};

/// 0 for equal levels, towards 1 where the first dominates, towards -1 where the second does.
float balance(float first, float second) noexcept
{
    if (first >= second) return 1.0f - (second + kLevelFloor) / (first + kLevelFloor);
    return (first + kLevelFloor) / (second + kLevelFloor) - 1.0f;
}

Floats<16> balance(const Floats<16>& first, const Floats<16>& second) noexcept
{
    const Floats<16> one = broadcast<16>(1.0f);
    const Floats<16> a = first + broadcast<16>(kLevelFloor);
    const Floats<16> b = second + broadcast<16>(kLevelFloor);
    const Ints<16> firstDominates = second <= first;
    const Floats<16> ratio = select(firstDominates, b, a) / select(firstDominates, a, b);
    return select(firstDominates, one - ratio, ratio - one);
}

/// steer for all groups.
Steerings steer(const Floats<16>& left, const Floats<16>& right, const Floats<16>& sum, const Floats<16>& diff) noexcept
{
    const Floats<16> zero = broadcast<16>(0.0f);
    const Floats<16> one = broadcast<16>(1.0f);
    const Floats<16> level = balance(sum, diff);
    const Floats<16> fb = select(level < zero, level * broadcast<16>(1.5f), level);
    const Floats<16> lr = balance(left, right);

    const Ints<16> beyondBack = fb < -one;
    const Floats<16> behind = select(beyondBack, lr * broadcast<16>(2.0f), lr * (one - fb));
    const Floats<16> wide = select(fb < zero, behind, lr);
    const Floats<16> withinLeft = select(one < wide, one, wide);
    return {select(withinLeft < -one, -one, withinLeft), select(one < fb, one, select(beyondBack, -one, fb))};
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

namespace
{

template <bool kTinyPair>
void smoothBroadband(ZRKTarn& engine) noexcept
{
    smooth<kTinyPair>(engine.slower, engine.globalLR, engine.globalLRSlower);
    smooth<kTinyPair>(engine.slower, engine.globalFB, engine.globalFBSlower);
    smooth<kTinyPair>(engine.slow, engine.globalLR, engine.globalLRSlow);
    smooth<kTinyPair>(engine.slow, engine.globalFB, engine.globalFBSlow);
    smooth<kTinyPair>(engine.mid, engine.globalLR, engine.globalLRMid);
    smooth<kTinyPair>(engine.mid, engine.globalFB, engine.globalFBMid);
    smooth<kTinyPair>(engine.fast, engine.globalLR, engine.globalLRFast);
    smooth<kTinyPair>(engine.fast, engine.globalFB, engine.globalFBFast);
}

} // namespace

void steerBroadband(ZRKTarn& engine) noexcept
{
    const Steering place = steer(engine.avgLevelL, engine.avgLevelR, engine.avgLevelSum, engine.avgLevelDiff);
    engine.globalLR = place.lr;
    engine.globalFB = place.fb;
    if (anyTinyPair(engine)) {
        smoothBroadband<true>(engine);
    } else {
        smoothBroadband<false>(engine);
    }
}

void steerGroups(ZRKTarn& engine) noexcept
{
    const Steerings places =
        steer(load<16>(engine.powL), load<16>(engine.powR), load<16>(engine.powSum), load<16>(engine.powDiff));
    store(engine.steerLR, places.lr);
    store(engine.steerFB, places.fb);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
