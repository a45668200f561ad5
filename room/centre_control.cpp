// Gain and width of the centre.
// SPDX-License-Identifier: MIT
#include "room/centre_control.h"

namespace zrk_tarn
{

float CentreControl::frontShareOf(float width) noexcept
{
    const auto share = static_cast<double>(width);
    return static_cast<float>(__builtin_sqrt((1.0 - share * share) * 0.5));
}

void CentreControl::apply(UnroundedRow& frontLeft, UnroundedRow& frontRight, UnroundedRow& centre) const noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        const double voice = gain.at(i) * centre[i];
        const double toFront = toEachFront.at(i) * voice;
        frontLeft[i] += toFront;
        frontRight[i] += toFront;
        centre[i] = width.at(i) * voice;
    }
}

void CentreControl::changeVoice(const UnroundedRow& centre, UnroundedRow& side) const noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) side[i] += (gain.at(i) - 1.0) * centre[i];
}

} // namespace zrk_tarn
