// The inputs of half-size transforms with vectors.
// SPDX-License-Identifier: MIT
#include "filterbank/vector_pair_sums.h"

#include "lanes/lanes.h"
#include "lanes/subnormal_safe.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

template <bool kSubnormalSafe>
void addPairs(const float (&x)[64], float (&even)[32], float (&odd)[32]) noexcept
{
    const LanePair<float, 32> entries = deinterleaved(load<64>(x));
    const auto evenEntries = valuesOf<kSubnormalSafe>(entries.even);
    store(even, singlesOf(evenEntries + valuesOf<kSubnormalSafe>(entries.odd)));
    // Minus zero is the neutral element of addition, so odd[0] is x[0].
    store(odd, singlesOf(valuesOf<kSubnormalSafe>(shiftedUp(-0.0f, entries.odd)) + evenEntries));
}

} // namespace

void splitIntoPairSums(const float (&x)[64], float (&even)[32], float (&odd)[32], bool mayBeSubnormal) noexcept
{
    if (mayBeSubnormal) {
        addPairs<true>(x, even, odd);
    } else {
        addPairs<false>(x, even, odd);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
