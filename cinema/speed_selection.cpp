// The speed at which every group follows its steering.
// SPDX-License-Identifier: MIT
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

/// Masks of the groups that follow a speed; groups in none of them follow the slower speed.
struct SpeedMasks
{
    Ints<16> fast;
    Ints<16> mid;
    Ints<16> slow;
};

template <bool kSubnormalSafe, bool kSafePair>
FourSpeeds smoothedAtFourSpeeds(const ZRKTarn& engine, const Floats<16>& steering, const FourSpeeds& state) noexcept
{
    return {smoothed<kSubnormalSafe, kSafePair>(engine.slower, steering, state.slower),
            smoothed<kSubnormalSafe, kSafePair>(engine.slow, steering, state.slow),
            smoothed<kSubnormalSafe, kSafePair>(engine.mid, steering, state.mid),
            smoothed<kSubnormalSafe, kSafePair>(engine.fast, steering, state.fast)};
}

FourSpeeds smoothedAtFourSpeeds(const ZRKTarn& engine, const Floats<16>& steering, const FourSpeeds& state) noexcept
{
    if (anyPairSlow(engine)) return smoothedAtFourSpeeds<true, true>(engine, steering, state);
    // After a block all four speeds have the same value.
    return anySlow(nearUnderflow(state.slower)) ? smoothedAtFourSpeeds<true, false>(engine, steering, state)
                                                : smoothedAtFourSpeeds<false, false>(engine, steering, state);
}

/// The mean, group ascending.
float meanOf(const Floats<16>& values) noexcept
{
    float groups[16];
    store(groups, values);
    float sum = 0.0f;
    for (const float value : groups) sum += value;
    return sum * 0.0625f;
}

Floats<16> limitedToFront(const Floats<16>& fb) noexcept
{
    const Floats<16> zero = broadcast<16>(0.0f);
    return select(fb < zero, zero, fb);
}

/// Chooses by the unsmoothed steering of this block.
SpeedMasks chooseSpeeds(const ZRKTarn& engine) noexcept
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

Floats<16> chosen(const SpeedMasks& follows, const FourSpeeds& speeds) noexcept
{
    return select(follows.fast, speeds.fast,
                  select(follows.mid, speeds.mid, select(follows.slow, speeds.slow, speeds.slower)));
}

std::int32_t flagOfLastGroup(const Ints<16>& mask) noexcept
{
    std::int32_t flags[16];
    store(flags, mask);
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
        fb.slow = limitedToFront(fb.slow);
        fb.mid = limitedToFront(fb.mid);
        fb.fast = limitedToFront(fb.fast);
    }

    const SpeedMasks follows = chooseSpeeds(engine);
    engine.usedFast = flagOfLastGroup(follows.fast);
    engine.usedMid = flagOfLastGroup(follows.mid);
    engine.usedSlow = flagOfLastGroup(follows.slow);

    const Floats<16> x = chosen(follows, lr);
    const Floats<16> y = chosen(follows, fb);
    store(engine.lrSlower, x);
    store(engine.lrSlow, x);
    store(engine.lrMid, x);
    store(engine.lrFast, x);
    store(engine.fbSlower, y);
    store(engine.fbSlow, y);
    store(engine.fbMid, y);
    store(engine.fbFast, y);
}

void readSpeeds(const ZRKTarn& engine, std::int32_t (&speed)[16]) noexcept
{
    const SpeedMasks follows = chooseSpeeds(engine);
    const std::int32_t fast = engine.holdMidSmoothing != 0 ? 2 : 3;
    store(speed, (follows.fast & broadcast<16>(fast)) | (follows.mid & broadcast<16>(std::int32_t{2})) |
                     (follows.slow & broadcast<16>(std::int32_t{1})));
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
