// The meters of a stream.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "room/surrounds.h"
#include "stream/block.h"
#include "stream/group_meters.h"
#include "stream/sample_rows.h"
#include "stream/stream_types.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// Levels, steering, band groups and counters of a stream. The stream's thread writes them after every block, any
/// thread reads them, both without locks.
class MeterBoard
{
public:
    /// engine  of the stream, for its band groups
    MeterBoard(const ZRKTarn& engine, std::uint32_t sampleRateHz, std::uint32_t bits) noexcept;

    /// Updates the levels of an output slot from its block.
    void addLevel(std::size_t slot, const Row& row) noexcept;

    /// Updates steering, band groups, limiter and counters after a block of the engine.
    ///
    /// surrounds  null without surround channels, in every block
    void addBlock(const ZRKTarn& engine, const Surrounds* surrounds, float limiterGain,
                  const SampleFaults& faults) noexcept;

    /// Sets all values to those of a new stream.
    void clear() noexcept;

    StreamMeters read() const noexcept;

private:
    double scale;    ///< makes full scale 1, exactly
    float peakDecay; ///< factor per block
    float rmsDecay;  ///< factor of the mean square per block

    GroupMeters groups;

    std::atomic<float> peak[kMaxSlots]{};
    std::atomic<float> meanSquare[kMaxSlots]{};
    std::atomic<float> leftRight[kBandGroups]{};
    std::atomic<float> frontBack[kBandGroups]{};
    std::atomic<SteeringSpeed> speed[kBandGroups]{};
    std::atomic<float> limiterGain = 1.0f;
    std::atomic<float> smallestLimiterGain = 1.0f;
    std::atomic<std::uint64_t> limitedBlocks{};
    std::atomic<std::uint64_t> blocks{};
    std::atomic<std::uint64_t> saturated{};
    std::atomic<std::uint64_t> invalid{};
};

} // namespace zrk_tarn
