// Steering from level relations.
// SPDX-License-Identifier: MIT
#include "cinema/steering.h"

#include "cinema/smoothing.h"
#include "lanes/lanes.h"
#include "lanes/subnormal_safe.h"

#include <utility>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr float kLevelFloor = 4.0f;

/// The steering of all groups.
struct Steerings
{
    Floats<16> lr;
    Floats<16> fb;
};

/// 0 for equal levels, towards 1 if the first is larger, towards -1 if the second is.
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
    const Ints<16> firstIsLarger = second <= first;
    const Floats<16> ratio = select(firstIsLarger, b, a) / select(firstIsLarger, a, b);
    return select(firstIsLarger, one - ratio, ratio - one);
}

/// steer for all groups.
Steerings steer(const Floats<16>& left, const Floats<16>& right, const Floats<16>& sum, const Floats<16>& diff) noexcept
{
    const Floats<16> zero = broadcast<16>(0.0f);
    const Floats<16> one = broadcast<16>(1.0f);
    const Floats<16> level = balance(sum, diff);
    const Floats<16> fb = select(level < zero, level * broadcast<16>(1.5f), level);
    const Floats<16> lr = balance(left, right);

    const Ints<16> isFullBack = fb < -one;
    const Floats<16> wideBack = select(isFullBack, lr * broadcast<16>(2.0f), lr * (one - fb));
    const Floats<16> wide = select(fb < zero, wideBack, lr);
    const Floats<16> limitedLeft = select(one < wide, one, wide);
    return {select(limitedLeft < -one, -one, limitedLeft), select(one < fb, one, select(isFullBack, -one, fb))};
}

} // namespace

Steering steer(float left, float right, float sum, float diff) noexcept
{
    Steering steering{balance(left, right), balance(sum, diff)};
    if (steering.fb < 0.0f) steering.fb *= 1.5f;

    if (steering.fb > 1.0f) {
        steering.fb = 1.0f;
    } else if (steering.fb < -1.0f) {
        steering.fb = -1.0f;
        steering.lr *= 2.0f;
    } else if (steering.fb < 0.0f) {
        steering.lr *= 1.0f - steering.fb;
    }

    if (steering.lr > 1.0f) steering.lr = 1.0f;
    if (steering.lr < -1.0f) steering.lr = -1.0f;
    return steering;
}

namespace
{

/// Lanes kFirst, kFirst, kSecond, kSecond.
template <int kFirst, int kSecond>
Floats<4> doubled(const Floats<4>& a) noexcept
{
    return {{shuffled<Floats<4>::Part>(a.part[0], a.part[0],
                                       std::integer_sequence<int, kFirst, kFirst, kSecond, kSecond>{})}};
}

template <bool kSubnormalSafe>
Floats<4> smoothed(const Floats<4>& kept, const Floats<4>& state, const Floats<4>& alpha,
                   const Floats<4>& value) noexcept
{
    return product<kSubnormalSafe>(kept, state) + product<kSubnormalSafe>(alpha, value);
}

/// states  pairs of left/right and front/back: slower, slow, mid and fast
template <bool kSubnormalSafe>
void smoothBroadband(const LanePair<float, 4>& pairs, const Steering& steering, float (&states)[8]) noexcept
{
    const float both[4] = {steering.lr, steering.fb, steering.lr, steering.fb};
    const Floats<4> value = load<4>(both);
    // Pairs are those of mid, slower, slow and fast.
    store(states,
          smoothed<kSubnormalSafe>(doubled<1, 2>(pairs.odd), load<4>(states), doubled<1, 2>(pairs.even), value));
    store(states + 4,
          smoothed<kSubnormalSafe>(doubled<0, 3>(pairs.odd), load<4>(states + 4), doubled<0, 3>(pairs.even), value));
}

} // namespace

void steerBroadband(ZRKTarn& engine) noexcept
{
    const Steering steering = steer(engine.avgLevelL, engine.avgLevelR, engine.avgLevelSum, engine.avgLevelDiff);
    engine.globalLR = steering.lr;
    engine.globalFB = steering.fb;
    const LanePair<float, 4> pairs = deinterleaved(steeringPairs(engine));
    float states[8] = {engine.globalLRSlower, engine.globalFBSlower, engine.globalLRSlow, engine.globalFBSlow,
                       engine.globalLRMid,    engine.globalFBMid,    engine.globalLRFast, engine.globalFBFast};
    if (anySlow(pairs.even, load<4>(states), load<4>(states + 4))) {
        smoothBroadband<true>(pairs, steering, states);
    } else {
        smoothBroadband<false>(pairs, steering, states);
    }
    engine.globalLRSlower = states[0];
    engine.globalFBSlower = states[1];
    engine.globalLRSlow = states[2];
    engine.globalFBSlow = states[3];
    engine.globalLRMid = states[4];
    engine.globalFBMid = states[5];
    engine.globalLRFast = states[6];
    engine.globalFBFast = states[7];
}

void steerGroups(ZRKTarn& engine) noexcept
{
    const Steerings steerings =
        steer(load<16>(engine.powL), load<16>(engine.powR), load<16>(engine.powSum), load<16>(engine.powDiff));
    store(engine.steerLR, steerings.lr);
    store(engine.steerFB, steerings.fb);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
