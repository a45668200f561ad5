// The meters of a stream.
// SPDX-License-Identifier: MIT
#include "stream/meter_board.h"

#include "dispatch/instruction_sets.h"
#include "stream/meter_times.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace zrk_tarn
{

namespace
{

constexpr auto kRelaxed = std::memory_order_relaxed;

constexpr float kTrace = 1e-30f; ///< levels below it become 0, because subnormal numbers are slow

} // namespace

MeterBoard::MeterBoard(const ZRKTarn& engine, std::uint32_t sampleRateHz, std::uint32_t bits) noexcept
    : scale(1.0 / static_cast<double>(std::uint32_t{1} << (bits - 1))), groups(engine, sampleRateHz)
{
    const double blockSeconds = static_cast<double>(kBlockFrames) / sampleRateHz;
    peakDecay = static_cast<float>(std::pow(10.0, -kPeakFallDb / 20.0 * blockSeconds / kPeakFallSeconds));
    rmsDecay = static_cast<float>(std::pow(std::numbers::e, -blockSeconds / kRmsSeconds));
}

void MeterBoard::addLevel(std::size_t slot, const Row& row) noexcept
{
    const RowLevel level = chosenOperations().measureRow(row);
    const double largest = std::max(static_cast<double>(level.highest), -static_cast<double>(level.lowest)) * scale;
    const double sum = level.squares * (scale * scale);
    const float fallen = peak[slot].load(kRelaxed) * peakDecay;
    peak[slot].store(std::max(static_cast<float>(largest), fallen > kTrace ? fallen : 0.0f), kRelaxed);
    const float kept = meanSquare[slot].load(kRelaxed) * rmsDecay;
    const float updated = kept + (1.0f - rmsDecay) * static_cast<float>(sum / kBlockFrames);
    meanSquare[slot].store(updated > kTrace ? updated : 0.0f, kRelaxed);
}

void MeterBoard::addBlock(const ZRKTarn& engine, const Surrounds* surrounds, float gainOfLimiter,
                          const SampleFaults& faults) noexcept
{
    std::int32_t speeds[kBandGroups];
    chosenOperations().readSpeeds(engine, speeds);
    for (std::size_t g = 0; g < kBandGroups; ++g) {
        leftRight[g].store(engine.lrSlower[g], kRelaxed);
        frontBack[g].store(engine.fbSlower[g], kRelaxed);
        speed[g].store(static_cast<SteeringSpeed>(speeds[g]), kRelaxed);
    }
    groups.addBlock(engine, surrounds);
    limiterGain.store(gainOfLimiter, kRelaxed);
    smallestLimiterGain.store(std::min(smallestLimiterGain.load(kRelaxed), gainOfLimiter), kRelaxed);
    if (gainOfLimiter < 1.0f) limitedBlocks.store(limitedBlocks.load(kRelaxed) + 1, kRelaxed);
    saturated.store(faults.saturated, kRelaxed);
    invalid.store(faults.invalid, kRelaxed);
    blocks.store(blocks.load(kRelaxed) + 1, kRelaxed); // one thread writes
}

void MeterBoard::clear() noexcept
{
    groups.clear();
    for (std::size_t slot = 0; slot < kMaxSlots; ++slot) {
        peak[slot].store(0.0f, kRelaxed);
        meanSquare[slot].store(0.0f, kRelaxed);
    }
    for (std::size_t g = 0; g < kBandGroups; ++g) {
        leftRight[g].store(0.0f, kRelaxed);
        frontBack[g].store(0.0f, kRelaxed);
        speed[g].store(SteeringSpeed::Slower, kRelaxed);
    }
    limiterGain.store(1.0f, kRelaxed);
    smallestLimiterGain.store(1.0f, kRelaxed);
    limitedBlocks.store(0, kRelaxed);
    blocks.store(0, kRelaxed);
    saturated.store(0, kRelaxed);
    invalid.store(0, kRelaxed);
}

StreamMeters MeterBoard::read() const noexcept
{
    StreamMeters meters{};
    for (std::size_t slot = 0; slot < kMaxSlots; ++slot) {
        meters.peak[slot] = peak[slot].load(kRelaxed);
        meters.rms[slot] = meanSquare[slot].load(kRelaxed);
    }
    for (float& value : meters.rms) value = __builtin_sqrtf(value); // apart, so that compilers vectorise it
    for (std::size_t g = 0; g < kBandGroups; ++g) {
        meters.leftRight[g] = leftRight[g].load(kRelaxed);
        meters.frontBack[g] = frontBack[g].load(kRelaxed);
        meters.speed[g] = speed[g].load(kRelaxed);
    }
    groups.read(meters);
    meters.limiterGain = limiterGain.load(kRelaxed);
    meters.smallestLimiterGain = smallestLimiterGain.load(kRelaxed);
    meters.limitedBlocks = limitedBlocks.load(kRelaxed);
    meters.blocks = blocks.load(kRelaxed);
    meters.saturated = saturated.load(kRelaxed);
    meters.invalid = invalid.load(kRelaxed);
    return meters;
}

} // namespace zrk_tarn
