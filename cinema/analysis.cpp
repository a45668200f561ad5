#include "cinema/analysis.h"

#include "filterbank/cos_mod.h"
#include "filterbank/pair_sums.h"

namespace zrk_tarn
{

void weightHistory(const float (&history)[1024], float (&branch)[128]) noexcept
{
    for (float& sum : branch) sum = 0.0f;
    for (int m = 0; m < 8; ++m)
        for (int k = 0; k < 128; ++k) branch[k] += lpf[k + 128 * m] * history[k + 128 * m];
}

void foldBranches(const float (&branch)[128], float (&folded)[64]) noexcept
{
    for (int n = 0; n < 64; ++n) folded[n] = (branch[n] - branch[63 - n]) + (-branch[64 + n] - branch[127 - n]);
}

void splitIntoPairSums(const float (&x)[64], float (&even)[32], float (&odd)[32]) noexcept
{
    pairSums(x, 32, even);
    shiftedPairSums(x, 32, odd);
}

void averageSubbands(const float (&subband)[64], float (&average)[64]) noexcept
{
    for (int n = 0; n < 64; ++n) average[n] = 0.9f * average[n] + 0.1f * subband[n];
}

} // namespace zrk_tarn
