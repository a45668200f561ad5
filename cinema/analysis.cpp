#include "cinema/analysis.h"

#include "cinema/smoothing.h"
#include "filterbank/cos_mod.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

template <bool kGradual>
void averageRow(const float (&subband)[64], float (&average)[64]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    constexpr float kPair[2] = {0.1f, 0.9f};
    for (int n = 0; n < 64; n += kWidth)
        store(average + n, smoothed<kGradual>(kPair, load<kWidth>(subband + n), load<kWidth>(average + n)));
}

template <bool kGradual>
void addPairs(const float (&x)[64], float (&even)[32], float (&odd)[32]) noexcept
{
    const LanePair<float, 32> entries = deinterleaved(load<64>(x));
    const auto ofEven = valuesOf<kGradual>(entries.even);
    store(even, singlesOf(ofEven + valuesOf<kGradual>(entries.odd)));
    // Minus zero is the neutral element of addition: the first entry stays alone.
    store(odd, singlesOf(valuesOf<kGradual>(shiftedUp(-0.0f, entries.odd)) + ofEven));
}

} // namespace

void weightAndAdvance(float (&history)[1024], float (&branch)[128]) noexcept
{
    constexpr int kWidth = kVectorFloats;

    // A column runs through all 16 blocks of the history: the even blocks are the terms of branch n, the odd ones
    // those of branch 64 + n. A block is stored as the one before it as soon as that one has been read.
    for (int n = 0; n < 64; n += kWidth) {
        Floats<kWidth> low = broadcast<kWidth>(0.0f);
        Floats<kWidth> high = broadcast<kWidth>(0.0f);
#pragma GCC unroll 8
        for (int m = 0; m < 1024; m += 128) {
            const Floats<kWidth> lowSamples = load<kWidth>(history + m + n);
            const Floats<kWidth> highSamples = load<kWidth>(history + m + 64 + n);
            low = low + lowSamples * load<kWidth>(lpf + m + n);
            high = high + highSamples * load<kWidth>(lpf + m + 64 + n);
            if (m > 0) store(history + m - 64 + n, lowSamples);
            store(history + m + n, highSamples);
        }
        store(branch + n, low);
        store(branch + 64 + n, high);
    }
}

void foldBranches(const float (&branch)[128], float (&folded)[64]) noexcept
{
    constexpr int kWidth = kVectorFloats;
    for (int n = 0; n < 64; n += kWidth) {
        const Floats<kWidth> low = load<kWidth>(branch + n);
        const Floats<kWidth> lowMirrored = reversed(load<kWidth>(branch + 64 - kWidth - n));
        const Floats<kWidth> high = load<kWidth>(branch + 64 + n);
        const Floats<kWidth> highMirrored = reversed(load<kWidth>(branch + 128 - kWidth - n));
        store(folded + n, (low - lowMirrored) + (-high - highMirrored));
    }
}

void splitIntoPairSums(const float (&x)[64], float (&even)[32], float (&odd)[32], bool tiny) noexcept
{
    if (tiny) {
        addPairs<true>(x, even, odd);
    } else {
        addPairs<false>(x, even, odd);
    }
}

void averageSubbands(const float (&subband)[64], float (&average)[64]) noexcept
{
    if (anyNearUnderflow(average)) {
        averageRow<true>(subband, average);
    } else {
        averageRow<false>(subband, average);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
