// The meters of the band groups.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "room/surrounds.h"
#include "stream/stream_types.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// Levels and places of the band groups, from the subbands that the engine mixes for its three outputs, and levels of
/// the surround channels, from the subbands of their difference. The stream's thread writes, any thread reads, both
/// without locks.
///
/// The stream's thread adds the squares of the subbands after every block. Only every kBlocksPerUpdate blocks it sums
/// them over each group and publishes the values, so that plug-ins can read them after every block.
class GroupMeters
{
public:
    /// Number of blocks between two updates.
    static constexpr std::uint32_t kBlocksPerUpdate = 8;

    /// engine  has the band groups and the scale; they must not change
    GroupMeters(const ZRKTarn& engine, std::uint32_t sampleRateHz) noexcept;

    /// Adds the subbands of the last block.
    ///
    /// surrounds  null without surround channels, in every block
    void addBlock(const ZRKTarn& engine, const Surrounds* surrounds) noexcept;

    /// Sets levels and places to zero.
    void clear() noexcept;

    /// Fills the members for band groups.
    void read(StreamMeters& meters) const noexcept;

private:
    static constexpr std::size_t kOutputs = 3;
    static constexpr std::size_t kDifference = kOutputs; ///< row after those of the outputs
    static constexpr std::size_t kRows = kDifference + 1;
    static constexpr std::size_t kBands = 64;

    /// What is published: members of StreamMeters.
    enum Value : std::uint8_t
    {
        kLevel,
        kPlace,
        kCentre,
        kSurround,
        kValues
    };

    void publish(std::size_t rows) noexcept;

    std::size_t endOfGroup[kBandGroups]{}; ///< first band after each group
    float upperHz[kBandGroups]{};          ///< upper edge of each group
    double powerScale;                     ///< from a sum of squared subbands to a mean square, full scale 1
    float decay;                           ///< factor of the mean per update
    std::uint32_t pendingBlocks = 0;       ///< blocks in the sums
    float squares[kRows][kBands]{};        ///< sums over the pending blocks, engine scale

    float meanSquare[kRows][kBandGroups]{}; ///< per block, engine scale

    std::atomic<float> published[kValues][kBandGroups]{};
};

} // namespace zrk_tarn
