// The meters of the band groups.
// SPDX-License-Identifier: MIT
#include "stream/group_meters.h"

#include "lanes/lanes.h"
#include "stream/block.h"
#include "stream/meter_times.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace zrk_tarn
{

using namespace TARN_INSTRUCTION_SET;

namespace
{

constexpr auto kRelaxed = std::memory_order_relaxed;

/// Smaller subbands count as zero, because squares that are subnormal are slow. It is -180 dB of full scale.
constexpr float kTrace = 1.0f;

/// The squared subbands of a block have 128 times the energy of the samples that the engine makes from them.
constexpr double kSubbandGain = 128.0;

/// All surround channels together have twice the energy of the difference: two channels have all of it each, four
/// channels half of it each.
constexpr double kSurroundShare = 2.0;

void addSquares(const float (&subbands)[64], float (&sums)[64]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    const Floats<kWidth> zero = broadcast<kWidth>(0.0f);
    const Floats<kWidth> trace = broadcast<kWidth>(kTrace);
    for (std::size_t band = 0; band < 64; band += kWidth) {
        const Floats<kWidth> value = load<kWidth>(subbands + band);
        const Floats<kWidth> kept = select(trace <= abs(value), value, zero);
        store(sums + band, load<kWidth>(sums + band) + kept * kept);
    }
}

} // namespace

GroupMeters::GroupMeters(const ZRKTarn& engine, std::uint32_t sampleRateHz) noexcept
{
    const float bandHz = static_cast<float>(sampleRateHz) / static_cast<float>(2 * kBands);
    std::size_t end = 0;
    for (std::size_t g = 0; g < kBandGroups; ++g) {
        end = std::min(end + static_cast<std::size_t>(engine.bandCount[g]), kBands);
        endOfGroup[g] = end;
        upperHz[g] = static_cast<float>(end) * bandHz;
    }
    const double sampleScale =
        static_cast<double>(engine.outputScale) / static_cast<double>(std::uint32_t{1} << (engine.bitsPerSample - 1));
    powerScale = sampleScale * sampleScale / (kSubbandGain * kBlockFrames);
    const double updateSeconds = static_cast<double>(kBlocksPerUpdate * kBlockFrames) / sampleRateHz;
    decay = static_cast<float>(std::pow(std::numbers::e, -updateSeconds / kRmsSeconds));
}

void GroupMeters::addBlock(const ZRKTarn& engine, const Surrounds* surrounds) noexcept
{
    for (std::size_t output = 0; output < kOutputs; ++output) addSquares(engine.outSubband[output], squares[output]);
    if (surrounds != nullptr) addSquares(surrounds->difference, squares[kDifference]);
    if (++pendingBlocks == kBlocksPerUpdate) publish(surrounds != nullptr ? kRows : kOutputs);
}

/// Updates the means of the first rows with the pending blocks.
void GroupMeters::publish(std::size_t rows) noexcept
{
    const float share = (1.0f - decay) / static_cast<float>(kBlocksPerUpdate);
    for (std::size_t row = 0; row < rows; ++row) {
        std::size_t band = 0;
        for (std::size_t g = 0; g < kBandGroups; ++g) {
            float sum = 0.0f;
            for (; band < endOfGroup[g]; ++band) sum += squares[row][band];
            const float updated = meanSquare[row][g].load(kRelaxed) * decay + sum * share;
            meanSquare[row][g].store(updated > kTrace ? updated : 0.0f, kRelaxed);
        }
        std::fill_n(squares[row], kBands, 0.0f);
    }
    pendingBlocks = 0;
}

void GroupMeters::clear() noexcept
{
    pendingBlocks = 0;
    for (std::size_t row = 0; row < kRows; ++row) {
        std::fill_n(squares[row], kBands, 0.0f);
        for (std::atomic<float>& mean : meanSquare[row]) mean.store(0.0f, kRelaxed);
    }
}

void GroupMeters::read(StreamMeters& meters) const noexcept
{
    float means[kRows][kBandGroups]; // compilers do not vectorise loads of atomics
    for (std::size_t row = 0; row < kRows; ++row)
        for (std::size_t g = 0; g < kBandGroups; ++g) means[row][g] = meanSquare[row][g].load(kRelaxed);
    for (std::size_t g = 0; g < kBandGroups; ++g) {
        const auto left = static_cast<double>(means[0][g]);
        const auto right = static_cast<double>(means[1][g]);
        const auto centre = static_cast<double>(means[2][g]);
        const auto difference = static_cast<double>(means[kDifference][g]);
        const double sum = left + right + centre;
        meters.groupUpperHz[g] = upperHz[g];
        meters.groupSurround[g] = static_cast<float>(__builtin_sqrt(kSurroundShare * difference * powerScale));
        meters.groupLevel[g] = static_cast<float>(__builtin_sqrt(sum * powerScale));
        const double divisor = std::max(sum, std::numeric_limits<double>::min());
        meters.groupPlace[g] = static_cast<float>((left - right) / divisor);
        meters.groupCentre[g] = static_cast<float>(centre / divisor);
    }
}

} // namespace zrk_tarn
