// Gain and width of the centre.
// SPDX-License-Identifier: MIT
#include "room/centre_control.h"

namespace zrk_tarn
{

void CentreControl::apply(const Row& frontLeft, const Row& frontRight, const Row& centre,
                          UnroundedRow (&out)[3]) const noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        const double share = width.at(i);
        const double voice = gain.at(i) * static_cast<double>(centre[i]);
        const double toEachFront = __builtin_sqrt((1.0 - share * share) * 0.5) * voice;
        out[0][i] = static_cast<double>(frontLeft[i]) + toEachFront;
        out[1][i] = static_cast<double>(frontRight[i]) + toEachFront;
        out[2][i] = share * voice;
    }
}

void CentreControl::changeVoice(const Row& side, const Row& centre, UnroundedRow& out) const noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        out[i] = static_cast<double>(side[i]) + (gain.at(i) - 1.0) * static_cast<double>(centre[i]);
    }
}

} // namespace zrk_tarn
