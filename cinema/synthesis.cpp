// The synthesis filterbank without its transform.
// SPDX-License-Identifier: MIT
#include "cinema/synthesis.h"

#include "filterbank/cos_mod.h"
#include "lanes/lanes.h"
#include "lanes/saturate.h"
#include "lanes/subnormal_safe.h"

#include <cstddef>
#include <utility>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr int kWidth = kVectorFloats;

/// Whether an even slot has values near underflow that are slow. Checks four values per slot: the transform spreads
/// every subband over all 64 values.
template <std::size_t... kSlot>
bool anySlotSlow(const float (&history)[1024], std::index_sequence<kSlot...> /*even slots*/) noexcept
{
    return anySlow(load<4>(history + 128 * kSlot)...);
}

template <bool kSubnormalSafe>
void weightAddAndAdvance(float (&history)[1024], float (&overlapNow)[64], float (&overlapNext)[64],
                         float (&sums)[64]) noexcept
{
    constexpr int kLastSlot = 1024 - 128;

    // Outputs n and 63 - n use the same difference and sum of Y[n] and Y[63 - n], except for the sign. The filter is
    // antisymmetric, so the taps of output 63 - n with that sign are lpf read from its end:
    // -lpf[63 - n + m] = lpf[960 + n - m], and -lpf[127 - n + m] = lpf[896 + n - m].
    for (int n = 0; n < 32; n += kWidth) {
        const int mirrored = 64 - kWidth - n;
        const auto at = [](const float* values) { return valuesOf<kSubnormalSafe>(load<kWidth>(values)); };
        const auto zero = valuesOf<kSubnormalSafe>(broadcast<kWidth>(0.0f));
        auto now = zero;
        auto nowMirrored = zero;
        auto minusNext = zero;
        auto nextMirrored = zero;
        // The previous odd slot, to be stored one slot up. The newest slot stays in place.
        Floats<kWidth> previousOdd = load<kWidth>(history + n);
        Floats<kWidth> previousOddMirrored = load<kWidth>(history + mirrored);
        // Unrolled by half: unrolled in full, GCC keeps the taps that two outputs share in registers and spills.
#pragma GCC unroll 1
        for (int first = 0; first < 1024; first += 128 * 4) {
#pragma GCC unroll 8
            for (int k = 0; k < 4; ++k) {
                const int m = first + 128 * k;
                float* const even = history + m;
                float* const odd = even + 64;
                const Floats<kWidth> y = load<kWidth>(even + n);
                const Floats<kWidth> yMirrored = load<kWidth>(even + mirrored);
                const auto a = valuesOf<kSubnormalSafe>(y);
                const auto b = valuesOf<kSubnormalSafe>(reversed(yMirrored));
                const auto difference = a - b;
                const auto sum = a + b;
                now = now + difference * at(lpf + n + m);
                nowMirrored = nowMirrored + difference * at(lpf + 960 + n - m);
                minusNext = minusNext + sum * at(lpf + 64 + n + m);
                nextMirrored = nextMirrored + sum * at(lpf + kLastSlot + n - m);

                store(even + n, previousOdd);
                store(even + mirrored, previousOddMirrored);
                previousOdd = load<kWidth>(odd + n);
                previousOddMirrored = load<kWidth>(odd + mirrored);
                store(odd + n, y);
                store(odd + mirrored, yMirrored);
            }
        }

        store(sums + n, singlesOf(at(overlapNow + n) + now));
        store(sums + mirrored, singlesOf(at(overlapNow + mirrored) + reversed(nowMirrored)));
        // A sum of products that starts from zero is never minus zero; zero minus such a sum is not either.
        store(overlapNow + n, singlesOf(at(overlapNext + n) + (zero - minusNext)));
        store(overlapNow + mirrored, singlesOf(at(overlapNext + mirrored) + reversed(nextMirrored)));
        store(overlapNext + n, broadcast<kWidth>(0.0f));
        store(overlapNext + mirrored, broadcast<kWidth>(0.0f));
    }
}

} // namespace

void overlapAddAndAdvance(float (&history)[1024], float (&overlapNow)[64], float (&overlapNext)[64],
                          float (&sums)[64]) noexcept
{
    if (anySlotSlow(history, std::make_index_sequence<8>{})) {
        weightAddAndAdvance<true>(history, overlapNow, overlapNext, sums);
    } else {
        weightAddAndAdvance<false>(history, overlapNow, overlapNext, sums);
    }
}

void roundOutput(const float (&sums)[64], std::int32_t (&output)[64]) noexcept
{
    truncateRow(
        [&](int n) {
            const Floats<kWidth> sum = load<kWidth>(sums + n);
            return sum + withSignOf(sum, broadcast<kWidth>(0.5f));
        },
        [&](int n, const Ints<kWidth>& rounded) { store(output + n, rounded); });
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
