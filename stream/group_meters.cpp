// The meters of the band groups.
// SPDX-License-Identifier: MIT
#include "stream/group_meters.h"

#include "dispatch/instruction_sets.h"
#include "stream/block.h"
#include "stream/meter_times.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace zrk_tarn
{

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
    const auto addSquares = chosenOperations().addSquares;
    for (std::size_t output = 0; output < kOutputs; ++output)
        addSquares(engine.outSubband[output], kTrace, squares[output]);
    if (surrounds != nullptr) addSquares(surrounds->difference, kTrace, squares[kDifference]);
    if (++pendingBlocks == kBlocksPerUpdate) publish(surrounds != nullptr ? kRows : kOutputs);
}

/// Updates the values with the pending blocks.
///
/// rows  in use
void GroupMeters::publish(std::size_t rows) noexcept
{
    const float share = (1.0f - decay) / static_cast<float>(kBlocksPerUpdate);
    for (std::size_t row = 0; row < rows; ++row) {
        std::size_t band = 0;
        for (std::size_t g = 0; g < kBandGroups; ++g) {
            float sum = 0.0f;
            for (; band < endOfGroup[g]; ++band) sum += squares[row][band];
            const float updated = meanSquare[row][g] * decay + sum * share;
            meanSquare[row][g] = updated > kTrace ? updated : 0.0f;
        }
        std::fill_n(squares[row], kBands, 0.0f);
    }
    pendingBlocks = 0;

    float values[kValues][kBandGroups]; // compilers do not vectorise stores of atomics
    for (std::size_t g = 0; g < kBandGroups; ++g) {
        const auto left = static_cast<double>(meanSquare[0][g]);
        const auto right = static_cast<double>(meanSquare[1][g]);
        const auto centre = static_cast<double>(meanSquare[2][g]);
        const auto difference = static_cast<double>(meanSquare[kDifference][g]);
        const double sum = left + right + centre;
        const double divisor = std::max(sum, std::numeric_limits<double>::min());
        values[kLevel][g] = static_cast<float>(__builtin_sqrt(sum * powerScale));
        values[kPlace][g] = static_cast<float>((left - right) / divisor);
        values[kCentre][g] = static_cast<float>(centre / divisor);
        values[kSurround][g] = static_cast<float>(__builtin_sqrt(kSurroundShare * difference * powerScale));
    }
    for (std::size_t value = 0; value < kValues; ++value)
        for (std::size_t g = 0; g < kBandGroups; ++g) published[value][g].store(values[value][g], kRelaxed);
}

void GroupMeters::clear() noexcept
{
    pendingBlocks = 0;
    for (std::size_t row = 0; row < kRows; ++row) {
        std::fill_n(squares[row], kBands, 0.0f);
        std::fill_n(meanSquare[row], kBandGroups, 0.0f);
    }
    for (auto& values : published)
        for (std::atomic<float>& value : values) value.store(0.0f, kRelaxed);
}

void GroupMeters::read(StreamMeters& meters) const noexcept
{
    for (std::size_t g = 0; g < kBandGroups; ++g) {
        meters.groupLevel[g] = published[kLevel][g].load(kRelaxed);
        meters.groupPlace[g] = published[kPlace][g].load(kRelaxed);
        meters.groupCentre[g] = published[kCentre][g].load(kRelaxed);
        meters.groupUpperHz[g] = upperHz[g];
        meters.groupSurround[g] = published[kSurround][g].load(kRelaxed);
    }
}

} // namespace zrk_tarn
