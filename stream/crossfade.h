// Mixes the upmix with the bypassed input and applies the make-up gain.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/block.h"
#include "room/glide.h"
#include "stream/sample_rows.h"

#include <cstdint>

namespace zrk_tarn
{

/// The make-up gain of an output, and the crossfade between upmix and bypassed input, the last stage. Between the two
/// is the limiter, in streams that have one.
///
/// At gain 1 without bypass, and in bypass, samples are copied exactly. During fades and at other gains they are
/// rounded half away from zero and saturate.
class Crossfade
{
public:
    explicit Crossfade(std::uint32_t bits) noexcept : limit(static_cast<double>(std::uint32_t{1} << (bits - 1))) {}

    /// Jumps to the targets without a fade.
    void snapToTargets(float wetTarget, float gainTarget) noexcept
    {
        wetShare = Glide(wetTarget);
        gain = Glide(gainTarget);
    }

    /// Advances both fades to the next block. wetTarget is 1 for the upmix, 0 for the bypassed input.
    void beginBlock(float wetTarget, float gainTarget) noexcept
    {
        wetShare.beginBlock(wetTarget);
        gain.beginBlock(gainTarget);
    }

    /// Mixes one output.
    ///
    /// wet     the engine's output
    /// dry     the delayed input for bypass, null for silence
    /// faults  counts the samples that saturate
    void mix(const Row& wet, const Row* dry, Row& out, SampleFaults& faults) const noexcept;

    /// The same for an output that is not rounded yet. At gain 1 it is only rounded.
    void mix(const UnroundedRow& wet, const Row* dry, Row& out, SampleFaults& faults) const noexcept;

    /// The first half of mix: applies the make-up gain.
    void amplify(const Row& wet, UnroundedRow& amplified) const noexcept;
    void amplify(const UnroundedRow& wet, UnroundedRow& amplified) const noexcept;

    /// Whether amplify leaves a block as it is.
    bool isExact() const noexcept { return gain.isSteadyAt(1.0f); }

    /// Whether the block is the bypassed input.
    bool isBypassed() const noexcept { return wetShare.isSteadyAt(0.0f); }

    /// The second half of mix, for an output to which the make-up gain was applied.
    void fade(const UnroundedRow& amplified, const Row* dry, Row& out, SampleFaults& faults) const noexcept;

private:
    template <typename ValueAt>
    void mixSamples(ValueAt valueAt, const Row* dry, Row& out, SampleFaults& faults) const noexcept;

    /// Rounds half away from zero and saturates.
    void round(const UnroundedRow& values, Row& out, SampleFaults& faults) const noexcept;

    double limit; ///< full scale
    Glide wetShare{1.0f};
    Glide gain{1.0f};
};

} // namespace zrk_tarn
