// Gain and width of the centre: the level of voices, and how much of them the centre loudspeaker plays.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/block.h"
#include "room/glide.h"

namespace zrk_tarn
{

/// Changes the level of the centre, and moves part of it to the fronts. Both settings fade.
class CentreControl
{
public:
    /// Jumps to the targets without a fade.
    void snapToTargets(float gainTarget, float widthTarget) noexcept
    {
        gain = Glide(gainTarget);
        width = Glide(widthTarget);
        toEachFront = Glide(frontShareOf(widthTarget));
    }

    /// Advances both fades to the next block.
    void beginBlock(float gainTarget, float widthTarget) noexcept
    {
        gain.beginBlock(gainTarget);
        width.beginBlock(widthTarget);
        toEachFront.beginBlock(frontShareOf(widthTarget));
    }

    /// Whether apply leaves the block as it is.
    bool isNeutral() const noexcept { return gain.isSteadyAt(1.0f) && width.isSteadyAt(1.0f); }

    /// Whether changeVoice leaves the block as it is.
    bool isVoiceUnchanged() const noexcept { return gain.isSteadyAt(1.0f); }

    /// For loudspeakers with a centre: centre' = gain width centre, and each front gains
    /// gain sqrt((1 - width^2) / 2) centre, so that the power stays the same at every width.
    void apply(UnroundedRow& frontLeft, UnroundedRow& frontRight, UnroundedRow& centre) const noexcept;

    /// For two loudspeakers or headphones: side + (gain - 1) centre. The engine's centre has the amplitude
    /// of a centred source in each side, so the level of the source changes by the gain. Width has no effect.
    ///
    /// In/Out  side   the stereo's left or right, as late as the centre
    void changeVoice(const UnroundedRow& centre, UnroundedRow& side) const noexcept;

private:
    /// sqrt((1 - width^2) / 2), rounded once.
    static float frontShareOf(float width) noexcept;

    Glide gain{1.0f};
    Glide width{1.0f};
    Glide toEachFront{0.0f}; ///< fades linearly too: the square root of a fading width would begin with a step
};

} // namespace zrk_tarn
