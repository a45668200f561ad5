#pragma once

#include "engine/zrk_tarn.h"
#include "stream/block.h"
#include "stream/sample_rows.h"
#include "stream/stream_types.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// The meters of a stream: written by its thread after every block, read by any thread without locks.
class MeterBoard
{
public:
    MeterBoard(std::uint32_t sampleRateHz, std::uint32_t bits) noexcept;

    /// Takes up the level of an output slot's block.
    void level(std::size_t slot, const Row& row) noexcept;

    /// Takes up where the engine steers, and what could not be carried over.
    void block(const ZRKTarn& engine, const SampleFaults& faults) noexcept;

    void clear() noexcept;

    StreamMeters read() const noexcept;

private:
    double fullScale_;
    float peakFall_; ///< factor per block
    float rmsKept_;  ///< part of the mean square that is kept per block

    std::atomic<float> peak_[kMostSlots]{};
    std::atomic<float> meanSquare_[kMostSlots]{};
    std::atomic<float> leftRight_[16]{};
    std::atomic<float> frontBack_[16]{};
    std::atomic<SteeringSpeed> speed_[16]{};
    std::atomic<std::uint64_t> blocks_{};
    std::atomic<std::uint64_t> saturated_{};
    std::atomic<std::uint64_t> invalid_{};
};

} // namespace zrk_tarn
