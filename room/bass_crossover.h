// A crossover that keeps the bass in the fronts, and the LFE channel.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/bass_filters.h"
#include "room/block.h"
#include "room/glide.h"
#include "room/row_operations.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// Linkwitz-Riley filters of 4th order at 120 Hz (S. H. Linkwitz, Active crossover networks for noncoincident drivers,
/// 1976): each is a Butterworth filter of 2nd order twice. Low and high part add up to an all-pass.
///
/// The bass of the stereo replaces the bass of the upmix, so its level does not depend on the steering. The surround
/// channels have a high-pass of the same kind at 160 Hz: they are later than the fronts and in other phases, and no
/// other output has to complement them.
class BassCrossover
{
public:
    explicit BassCrossover(std::uint32_t sampleRateHz) noexcept;

    /// Clears the signal.
    void reset() noexcept;

    /// Jumps to the target without a fade.
    void snapToTarget(bool isOn) noexcept { share = Glide(isOn ? 1.0f : 0.0f); }

    /// Advances the fade between the outputs with and without the crossover to the next block.
    void beginBlock(bool isOn) noexcept;

    /// Whether the block stays as it is.
    bool isOff() const noexcept { return share.isSteadyAt(0.0f); }

    /// Replaces the bass of front left, front right and centre: removes it, and adds sqrt(1/2) times the bass of the
    /// stereo to the fronts. Removes the bass of the surround channels.
    ///
    /// In   left, right  the stereo, as late as the fronts
    ///      count        of the surround channels: 0, 2 or 4, always the same
    void moveToFronts(const RowOperations& operations, const Row& left, const Row& right, UnroundedRow* fronts,
                      UnroundedRow* surrounds, std::size_t count) noexcept;

    /// Computes the bass of left plus right. It does not fade.
    void addBass(const RowOperations& operations, const Row& left, const Row& right, UnroundedRow& sum) noexcept;

private:
    BassFilters outputs{}; ///< left and right of the stereo, front left and right, centre, surround channels
    BassFilters lfe{};     ///< of left plus right
    Glide share{0.0f};     ///< of the outputs with the crossover
};

} // namespace zrk_tarn
