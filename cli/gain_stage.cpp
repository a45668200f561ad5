// Gain and limiter of an upmix that was computed with headroom.
// SPDX-License-Identifier: MIT
#include "cli/gain_stage.h"

#include "room/true_peak.h"
#include "stream/gain.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tarn
{

namespace
{

using zrk_tarn::kBlockFrames;
using zrk_tarn::Limiter;

constexpr double kFullScale = 0x1p31;

} // namespace

void addHeadroom(std::span<std::int32_t> samples, int bits) noexcept
{
    if (bits == 0) return;
    const std::int64_t half = std::int64_t{1} << (bits - 1);
    for (std::int32_t& sample : samples) sample = static_cast<std::int32_t>((sample + half) >> bits);
}

GainStage::GainStage(std::size_t slotsPerFrame, StreamFormat format, const OutputLevel& level, AudioSink& next)
    : slots(slotsPerFrame),
      shift(32 - format.bits),
      factor(std::ldexp(static_cast<double>(zrk_tarn::gainFactor(level.gainDb)), level.headroomBits)),
      isLimited(level.limiter),
      sink(next),
      limiter(format.sampleRate, kFullScale),
      output(kBlockFrames * slots)
{}

void GainStage::write(const std::int32_t* samples, std::size_t frames)
{
    consumed += frames;
    zrk_tarn::UnroundedRow* rows = limiter.input();
    while (frames > 0) {
        const std::size_t count = std::min(frames, kBlockFrames - filled);
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t slot = 0; slot < slots; ++slot) rows[slot][filled + i] = factor * *samples++;
        filled += count;
        frames -= count;
        if (filled == kBlockFrames) {
            processBlock();
            rows = limiter.input();
        }
    }
}

void GainStage::flush()
{
    while (delivered < consumed) {
        zrk_tarn::UnroundedRow* const rows = limiter.input();
        for (std::size_t slot = 0; slot < slots; ++slot) std::fill(rows[slot] + filled, rows[slot] + kBlockFrames, 0.0);
        processBlock();
    }
}

/// Limits a block, which exchanges it for the one before, and writes it.
void GainStage::processBlock()
{
    filled = 0;
    const zrk_tarn::UnroundedRow* rows = limiter.input();
    if (isLimited) {
        const auto ceiling = static_cast<float>(Limiter::kCeiling);
        using namespace zrk_tarn::TARN_INSTRUCTION_SET;
        const float peak =
            findTruePeak(limiter.peakWindowOf(slots, advancePeakWindow), static_cast<std::int32_t>(slots), ceiling);
        rows = limiter.process(slots, static_cast<double>(peak));
        if (limiter.gain() < 1.0) ++peaks.limitedBlocks;
        peaks.limiterGain = std::min(peaks.limiterGain, limiter.gain());
        if (!std::exchange(hasDelayedBlock, true)) return;
    }
    const auto frames = static_cast<std::size_t>(std::min<std::uint64_t>(kBlockFrames, consumed - delivered));
    std::int32_t* next = output.data();
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t slot = 0; slot < slots; ++slot) *next++ = rounded(rows[slot][i]);
    delivered += frames;
    sink.write(output.data(), frames);
}

/// Rounds a sample half away from zero to the width of the output. Clips it at full scale.
std::int32_t GainStage::rounded(double sample)
{
    const auto step = std::int64_t{1} << shift;
    const double scaled = sample / static_cast<double>(step);
    const auto exact = static_cast<std::int64_t>(scaled < 0.0 ? scaled - 0.5 : scaled + 0.5);
    const std::int64_t fullScale = (std::int64_t{1} << 31) / step;
    if (exact < -fullScale || exact >= fullScale) {
        ++peaks.clipped;
        return static_cast<std::int32_t>((exact < 0 ? -fullScale : fullScale - 1) * step);
    }
    return static_cast<std::int32_t>(exact * step);
}

} // namespace tarn
