#include "stream/meter_board.h"

#include "dispatch/instruction_sets.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace zrk_tarn
{

namespace
{

constexpr auto kRelaxed = std::memory_order_relaxed;

constexpr double kPeakFallDb = 20.0;     ///< within the next time
constexpr double kPeakFallSeconds = 1.7; ///< IEC 60268-10, type I
constexpr double kRmsSeconds = 0.3;
constexpr float kTrace = 1e-30f; ///< what falls below it ends: subnormal numbers are slow and never quite end

} // namespace

MeterBoard::MeterBoard(std::uint32_t sampleRateHz, std::uint32_t bits) noexcept
    : fullScale_(static_cast<double>(std::uint32_t{1} << (bits - 1)))
{
    const double blockSeconds = static_cast<double>(kBlockFrames) / sampleRateHz;
    peakFall_ = static_cast<float>(std::pow(10.0, -kPeakFallDb / 20.0 * blockSeconds / kPeakFallSeconds));
    rmsKept_ = static_cast<float>(std::pow(std::numbers::e, -blockSeconds / kRmsSeconds));
}

void MeterBoard::level(std::size_t slot, const Row& row) noexcept
{
    double largest = 0.0;
    double sum = 0.0;
    for (const std::int32_t sample : row) {
        const double value = static_cast<double>(sample) / fullScale_;
        largest = std::max(largest, std::fabs(value));
        sum += value * value;
    }
    const float fallen = peak_[slot].load(kRelaxed) * peakFall_;
    peak_[slot].store(std::max(static_cast<float>(largest), fallen > kTrace ? fallen : 0.0f), kRelaxed);
    const float kept = meanSquare_[slot].load(kRelaxed) * rmsKept_;
    const float meanSquare = kept + (1.0f - rmsKept_) * static_cast<float>(sum / kBlockFrames);
    meanSquare_[slot].store(meanSquare > kTrace ? meanSquare : 0.0f, kRelaxed);
}

void MeterBoard::block(const ZRKTarn& engine, const SampleFaults& faults) noexcept
{
    std::int32_t speed[16];
    chosenOperations().readSpeeds(engine, speed);
    for (int g = 0; g < 16; ++g) {
        leftRight_[g].store(engine.lrSlower[g], kRelaxed);
        frontBack_[g].store(engine.fbSlower[g], kRelaxed);
        speed_[g].store(static_cast<SteeringSpeed>(speed[g]), kRelaxed);
    }
    saturated_.store(faults.saturated, kRelaxed);
    invalid_.store(faults.invalid, kRelaxed);
    blocks_.store(blocks_.load(kRelaxed) + 1, kRelaxed); // one thread writes
}

void MeterBoard::clear() noexcept
{
    for (std::atomic<float>& peak : peak_) peak.store(0.0f, kRelaxed);
    for (std::atomic<float>& meanSquare : meanSquare_) meanSquare.store(0.0f, kRelaxed);
    for (int g = 0; g < 16; ++g) {
        leftRight_[g].store(0.0f, kRelaxed);
        frontBack_[g].store(0.0f, kRelaxed);
        speed_[g].store(SteeringSpeed::Slower, kRelaxed);
    }
    blocks_.store(0, kRelaxed);
    saturated_.store(0, kRelaxed);
    invalid_.store(0, kRelaxed);
}

StreamMeters MeterBoard::read() const noexcept
{
    StreamMeters meters{};
    for (std::size_t slot = 0; slot < kMostSlots; ++slot) {
        meters.peak[slot] = peak_[slot].load(kRelaxed);
        const float meanSquare = meanSquare_[slot].load(kRelaxed);
        if (meanSquare > 0.0f) meters.rms[slot] = static_cast<float>(std::pow(static_cast<double>(meanSquare), 0.5));
    }
    for (int g = 0; g < 16; ++g) {
        meters.leftRight[g] = leftRight_[g].load(kRelaxed);
        meters.frontBack[g] = frontBack_[g].load(kRelaxed);
        meters.speed[g] = speed_[g].load(kRelaxed);
    }
    meters.blocks = blocks_.load(kRelaxed);
    meters.saturated = saturated_.load(kRelaxed);
    meters.invalid = invalid_.load(kRelaxed);
    return meters;
}

} // namespace zrk_tarn
