#include "cinema/speed_selection.h"

#include "cinema/smoothing.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// One coordinate of all groups at four speeds.
struct FourSpeeds
{
    Floats<16> slower;
    Floats<16> slow;
    Floats<16> mid;
    Floats<16> fast;
};

/// Which groups follow which speed; those that follow none of these follow the slower one.
struct Followed
{
    Ints<16> fast;
    Ints<16> mid;
    Ints<16> slow;
};

template <bool kGradual, bool kTinyPair>
FourSpeeds smoothedAtFourSpeeds(const ZRKTarn& engine, const Floats<16>& steering, const FourSpeeds& state) noexcept
{
    return {smoothed<kGradual, kTinyPair>(engine.slower, steering, state.slower),
            smoothed<kGradual, kTinyPair>(engine.slow, steering, state.slow),
            smoothed<kGradual, kTinyPair>(engine.mid, steering, state.mid),
            smoothed<kGradual, kTinyPair>(engine.fast, steering, state.fast)};
}

FourSpeeds smoothedAtFourSpeeds(const ZRKTarn& engine, const Floats<16>& steering, const FourSpeeds& state) noexcept
{
    if (anyTinyPair(engine)) return smoothedAtFourSpeeds<true, true>(engine, steering, state);
    // After a choice all four speeds stand at the same place.
    return any(nearUnderflow(state.slower)) ? smoothedAtFourSpeeds<true, false>(engine, steering, state)
                                            : smoothedAtFourSpeeds<false, false>(engine, steering, state);
}

/// Group ascending.
float meanOf(const Floats<16>& values) noexcept
{
    float groups[16];
    store(groups, values);
    float sum = 0.0f;
    for (const float value : groups) sum += value;
    return sum * 0.0625f;
}

Floats<16> keptInFront(const Floats<16>& fb) noexcept
{
    const Floats<16> zero = broadcast<16>(0.0f);
    return select(fb < zero, zero, fb);
}

/// The choice by this block's unsmoothed steering.
Followed chooseSpeeds(const ZRKTarn& engine) noexcept
{
    const Floats<16> a = abs(load<16>(engine.steerLR));
    const Floats<16> f = abs(load<16>(engine.steerFB));
    const Floats<16> thres = load<16>(engine.thres);
    const Floats<16> midThres = load<16>(engine.midThres);
    const Floats<16> slowThres = load<16>(engine.slowThres);

    const Ints<16> weak = (a < thres) & (f < thres) & broadcast<16>(std::int32_t{engine.tonalBlock == 0 ? -1 : 0});
    const Ints<16> mid = weak & ((midThres <= a) | (midThres <= f));
    const Ints<16> slow = weak & ~mid & ((slowThres <= a) | (slowThres <= f));
    return {~weak, mid, slow};
}

Floats<16> chosen(const Followed& followed, const FourSpeeds& speeds) noexcept
{
    return select(followed.fast, speeds.fast,
                  select(followed.mid, speeds.mid, select(followed.slow, speeds.slow, speeds.slower)));
}

std::int32_t flagOfLastGroup(const Ints<16>& followed) noexcept
{
    std::int32_t flags[16];
    store(flags, followed);
    return -flags[15];
}

} // namespace

void selectSpeeds(ZRKTarn& engine) noexcept
{
    const FourSpeeds lr = smoothedAtFourSpeeds(
        engine, load<16>(engine.steerLR),
        {load<16>(engine.lrSlower), load<16>(engine.lrSlow), load<16>(engine.lrMid), load<16>(engine.lrFast)});
    FourSpeeds fb = smoothedAtFourSpeeds(
        engine, load<16>(engine.steerFB),
        {load<16>(engine.fbSlower), load<16>(engine.fbSlow), load<16>(engine.fbMid), load<16>(engine.fbFast)});
    engine.meanLRFast = meanOf(lr.fast);
    if (engine.outputChannels == 3) {
        fb.slow = keptInFront(fb.slow);
        fb.mid = keptInFront(fb.mid);
        fb.fast = keptInFront(fb.fast);
    }

    const Followed followed = chooseSpeeds(engine);
    engine.usedFast = flagOfLastGroup(followed.fast);
    engine.usedMid = flagOfLastGroup(followed.mid);
    engine.usedSlow = flagOfLastGroup(followed.slow);

    const Floats<16> x = chosen(followed, lr);
    const Floats<16> y = chosen(followed, fb);
    store(engine.lrSlower, x);
    store(engine.lrSlow, x);
    store(engine.lrMid, x);
    store(engine.lrFast, x);
    store(engine.fbSlower, y);
    store(engine.fbSlow, y);
    store(engine.fbMid, y);
    store(engine.fbFast, y);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
