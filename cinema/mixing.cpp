#include "cinema/mixing.h"

#include <algorithm>
#include <cmath>

namespace zrk_tarn
{

namespace
{

/// Formed in double and rounded once.
float frontGain(float lr) noexcept
{
    return static_cast<float>((1.0 - std::fabs(static_cast<double>(lr))) * 0.5 + 1.0);
}

} // namespace

void mixSubbands(ZRKTarn& engine) noexcept
{
    std::int32_t& b = engine.bandIndex;
    b = 0;
    for (std::int32_t& g = engine.groupIndex = 0; g < 16; ++g) {
        std::copy_n(engine.groupMatrix[g], 6, engine.mixCoeff);
        const float(&c)[6] = engine.mixCoeff;
        const float gain = frontGain(engine.lrSlower[g]);
        for (const std::int32_t end = b + engine.bandCount[g]; b < end; ++b) {
            const float l = engine.subband[0][b];
            const float r = engine.subband[1][b];
            engine.outSubband[0][b] = (c[0] * gain) * l + (gain * c[1]) * r;
            engine.outSubband[2][b] = c[2] * l + c[3] * r;
            engine.outSubband[1][b] = (c[4] * gain) * l + (c[5] * gain) * r;
        }
    }
}

} // namespace zrk_tarn
