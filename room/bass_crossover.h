// A crossover that keeps the bass in the fronts, and the LFE channel.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/block.h"
#include "room/glide.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// Linkwitz-Riley filters of 4th order at 120 Hz (S. H. Linkwitz, Active crossover networks for noncoincident drivers,
/// 1976): each is a Butterworth filter of 2nd order twice. Low and high part add up to an all-pass.
///
/// The bass of the stereo replaces the bass of the upmix, so its level does not depend on the steering.
class BassCrossover
{
public:
    static constexpr std::size_t kRows = 4;

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
    /// stereo to the fronts. The fourth row is not used.
    ///
    /// In   left, right  the stereo, as late as the rows
    void moveToFronts(const Row& left, const Row& right, UnroundedRow (&rows)[kRows]) noexcept;

    /// Removes the bass of surround channels.
    void removeFrom(UnroundedRow (&surrounds)[kRows]) noexcept;

    /// Computes the bass of left plus right. It does not fade.
    void addBass(const Row& left, const Row& right, UnroundedRow& sum) noexcept;

private:
    struct Coefficients
    {
        double b0, b1, b2, a1, a2;
    };

    /// Both sections of neighbouring filters.
    struct Filters
    {
        double first[2][kRows]{};
        double second[2][kRows]{};

        /// Fades from the input to the output of the filters by their share.
        void filterBlock(const Coefficients& c, const Glide& wetShare, UnroundedRow (&rows)[kRows]) noexcept;
    };

    Coefficients lowPass;
    Coefficients highPass;
    Filters stereo;
    Filters fronts;
    Filters behind;
    Filters lfe;
    Glide share{0.0f};          ///< of the outputs with the crossover
    UnroundedRow bass[kRows]{}; ///< scratch
};

} // namespace zrk_tarn
