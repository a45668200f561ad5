#include "cinema/synthesis.h"

#include "engine/saturate.h"
#include "filterbank/cos_mod.h"

namespace zrk_tarn
{

void overlapAdd(const float (&history)[1024], float (&overlapNow)[64], float (&overlapNext)[64]) noexcept
{
    for (int n = 0; n < 64; ++n) {
        float sum = 0.0f;
        for (int m = 0; m < 1024; m += 128) sum += (history[n + m] - history[63 - n + m]) * lpf[n + m];
        overlapNow[n] += sum;
    }
    for (int n = 0; n < 64; ++n) {
        float sum = 0.0f;
        for (int m = 0; m < 1024; m += 128) sum += (-history[n + m] - history[63 - n + m]) * lpf[n + m + 64];
        overlapNext[n] += sum;
    }
}

void roundOutput(const float (&sums)[64], std::int32_t (&output)[64]) noexcept
{
    for (int n = 0; n < 64; ++n) {
        const float half = sums[n] < 0.0f ? -0.5f : 0.5f;
        output[n] = saturatedToInt32(sums[n] + half);
    }
}

} // namespace zrk_tarn
