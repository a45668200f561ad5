// The speed at which every group follows its steering.
// SPDX-License-Identifier: MIT
#include "cinema/speed_selection.h"

#include "cinema/smoothing.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr int kWidth = kVectorFloats; // lanes are groups

/// One coordinate of some groups at four speeds.
struct FourSpeeds
{
    Floats<kWidth> slower;
    Floats<kWidth> slow;
    Floats<kWidth> mid;
    Floats<kWidth> fast;
};

/// Masks of the groups that follow a speed; groups in none of them follow the slower speed.
struct SpeedMasks
{
    Ints<kWidth> fast;
    Ints<kWidth> mid;
    Ints<kWidth> slow;
};

template <bool kSubnormalSafe, bool kSafePair>
FourSpeeds smoothedAtFourSpeeds(const ZRKTarn& engine, const Floats<kWidth>& steering, const FourSpeeds& state) noexcept
{
    return {smoothed<kSubnormalSafe, kSafePair>(engine.slower, steering, state.slower),
            smoothed<kSubnormalSafe, kSafePair>(engine.slow, steering, state.slow),
            smoothed<kSubnormalSafe, kSafePair>(engine.mid, steering, state.mid),
            smoothed<kSubnormalSafe, kSafePair>(engine.fast, steering, state.fast)};
}

/// The mean, group ascending.
float meanOf(const float (&values)[16]) noexcept
{
    float sum = 0.0f;
    for (const float value : values) sum += value;
    return sum * 0.0625f;
}

/// Chooses by the unsmoothed steering of this block, for groups from g on.
SpeedMasks chooseSpeeds(const ZRKTarn& engine, int g) noexcept
{
    const Floats<kWidth> a = abs(load<kWidth>(engine.steerLR + g));
    const Floats<kWidth> f = abs(load<kWidth>(engine.steerFB + g));
    const Floats<kWidth> thres = load<kWidth>(engine.thres + g);
    const Floats<kWidth> midThres = load<kWidth>(engine.midThres + g);
    const Floats<kWidth> slowThres = load<kWidth>(engine.slowThres + g);

    const Ints<kWidth> weak =
        (a < thres) & (f < thres) & broadcast<kWidth>(std::int32_t{engine.tonalBlock == 0 ? -1 : 0});
    const Ints<kWidth> mid = weak & ((midThres <= a) | (midThres <= f));
    const Ints<kWidth> slow = weak & ~mid & ((slowThres <= a) | (slowThres <= f));
    return {~weak, mid, slow};
}

Floats<kWidth> chosen(const SpeedMasks& follows, const FourSpeeds& speeds) noexcept
{
    return select(follows.fast, speeds.fast,
                  select(follows.mid, speeds.mid, select(follows.slow, speeds.slow, speeds.slower)));
}

std::int32_t flagOfLastGroup(const Ints<kWidth>& mask) noexcept
{
    return -mask.part[0][kWidth - 1];
}

template <bool kSubnormalSafe, bool kSafePair>
void selectSpeedsOfGroups(ZRKTarn& engine) noexcept
{
    float lrFast[16];
    SpeedMasks follows;
#pragma GCC unroll 1
    for (int g = 0; g < 16; g += kWidth) {
        const FourSpeeds lr = smoothedAtFourSpeeds<kSubnormalSafe, kSafePair>(
            engine, load<kWidth>(engine.steerLR + g),
            {load<kWidth>(engine.lrSlower + g), load<kWidth>(engine.lrSlow + g), load<kWidth>(engine.lrMid + g),
             load<kWidth>(engine.lrFast + g)});
        FourSpeeds fb = smoothedAtFourSpeeds<kSubnormalSafe, kSafePair>(
            engine, load<kWidth>(engine.steerFB + g),
            {load<kWidth>(engine.fbSlower + g), load<kWidth>(engine.fbSlow + g), load<kWidth>(engine.fbMid + g),
             load<kWidth>(engine.fbFast + g)});
        store(lrFast + g, lr.fast);
        if (engine.outputChannels == 3) {
            const Floats<kWidth> zero = broadcast<kWidth>(0.0f);
            fb.slow = larger(zero, fb.slow);
            fb.mid = larger(zero, fb.mid);
            fb.fast = larger(zero, fb.fast);
        }

        follows = chooseSpeeds(engine, g);
        const Floats<kWidth> x = chosen(follows, lr);
        const Floats<kWidth> y = chosen(follows, fb);
        store(engine.lrSlower + g, x);
        store(engine.lrSlow + g, x);
        store(engine.lrMid + g, x);
        store(engine.lrFast + g, x);
        store(engine.fbSlower + g, y);
        store(engine.fbSlow + g, y);
        store(engine.fbMid + g, y);
        store(engine.fbFast + g, y);
    }
    engine.meanLRFast = meanOf(lrFast);
    engine.usedFast = flagOfLastGroup(follows.fast);
    engine.usedMid = flagOfLastGroup(follows.mid);
    engine.usedSlow = flagOfLastGroup(follows.slow);
}

} // namespace

void selectSpeeds(ZRKTarn& engine) noexcept
{
    if (anySlow(deinterleaved(steeringPairs(engine)).even)) {
        selectSpeedsOfGroups<true, true>(engine);
    } else if (anySlow(load<16>(engine.lrSlower), load<16>(engine.fbSlower))) {
        // After a block all four speeds have the same value.
        selectSpeedsOfGroups<true, false>(engine);
    } else {
        selectSpeedsOfGroups<false, false>(engine);
    }
}

void readSpeeds(const ZRKTarn& engine, std::int32_t (&speed)[16]) noexcept
{
    const std::int32_t fast = engine.holdMidSmoothing != 0 ? 2 : 3;
    for (int g = 0; g < 16; g += kWidth) {
        const SpeedMasks follows = chooseSpeeds(engine, g);
        store(speed + g, (follows.fast & broadcast<kWidth>(fast)) | (follows.mid & broadcast<kWidth>(std::int32_t{2})) |
                             (follows.slow & broadcast<kWidth>(std::int32_t{1})));
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
