// The analysis filterbank without its transform.
// SPDX-License-Identifier: MIT
#include "cinema/analysis.h"

#include "cinema/smoothing.h"
#include "filterbank/cos_mod.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

template <bool kSubnormalSafe>
void averageRow(const float (&subband)[64], float (&average)[64]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    constexpr float kPair[2] = {0.1f, 0.9f};
    for (int n = 0; n < 64; n += kWidth)
        store(average + n, smoothed<kSubnormalSafe>(kPair, load<kWidth>(subband + n), load<kWidth>(average + n)));
}

} // namespace

void weightAndAdvance(const float (&magnitudes)[32][4], float (&history)[1024], float (&branch)[128],
                      float (&levelSums)[4]) noexcept
{
    constexpr int kWidth = kVectorFloats;

    // Column n of the 16 blocks: even blocks are the terms of branch n, odd blocks those of branch 64 + n. Every block
    // is stored in the place of the previous one, which has been read.
    Floats<4> levels = load<4>(levelSums);
    const float(*next)[4] = magnitudes;
    for (int n = 0; n < 64; n += kWidth) {
        Floats<kWidth> low = broadcast<kWidth>(0.0f);
        Floats<kWidth> high = broadcast<kWidth>(0.0f);
#pragma GCC unroll 8
        for (int m = 0; m < 1024; m += 128) {
            const Floats<kWidth> lowSamples = inRegister(load<kWidth>(history + m + n));
            const Floats<kWidth> highSamples = inRegister(load<kWidth>(history + m + 64 + n));
            low = low + lowSamples * load<kWidth>(lpf + m + n);
            high = high + highSamples * load<kWidth>(lpf + m + 64 + n);
            if (m > 0) store(history + m - 64 + n, lowSamples);
            store(history + m + n, highSamples);
        }
        store(branch + n, low);
        store(branch + 64 + n, high);
        // Few samples at a time: the processor does these additions, which wait for each other, beside the others.
#pragma GCC unroll 8
        for (int t = 0; t < kWidth / 2; ++t) levels = levels + load<4>(*next++);
    }
    store(levelSums, levels);
}

void foldBranches(const float (&branch)[128], float (&folded)[64]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    // Outputs n and 63 - n use the same difference, except for the sign, and the same sum. Zeros have the sign of the
    // formula as long as no branch is minus zero.
    for (int n = 0; n < 32; n += kWidth) {
        const int mirrored = 64 - kWidth - n;
        const Floats<kWidth> low = load<kWidth>(branch + n) - reversed(load<kWidth>(branch + mirrored));
        const Floats<kWidth> high = load<kWidth>(branch + 64 + n) + reversed(load<kWidth>(branch + 64 + mirrored));
        store(folded + n, low - high);
        store(folded + mirrored, reversed(broadcast<kWidth>(0.0f) - low - high));
    }
}

void averageSubbands(const float (&subband)[64], float (&average)[64]) noexcept
{
    if (anySlow(average)) {
        averageRow<true>(subband, average);
    } else {
        averageRow<false>(subband, average);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
