// Mixes the upmix with the bypassed input and applies the make-up gain.
// SPDX-License-Identifier: MIT
#include "stream/crossfade.h"

#include <algorithm>

namespace zrk_tarn
{

void Crossfade::mix(const Row& wet, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    if (wetShare.isSteadyAt(1.0f) && gain.isSteadyAt(1.0f)) {
        std::copy_n(wet, kBlockFrames, out);
    } else {
        mixSamples(wet, dry, out, faults);
    }
}

void Crossfade::mix(const UnroundedRow& wet, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    mixSamples(wet, dry, out, faults);
}

template <typename WetRow>
void Crossfade::mixSamples(const WetRow& wet, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    if (wetShare.isSteadyAt(0.0f)) {
        for (std::size_t i = 0; i < kBlockFrames; ++i) out[i] = dry != nullptr ? (*dry)[i] : 0;
        return;
    }
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        const double share = wetShare.at(i);
        const double dryPart = dry != nullptr ? (1.0 - share) * static_cast<double>((*dry)[i]) : 0.0;
        out[i] = saturated(share * gain.at(i) * static_cast<double>(wet[i]) + dryPart, faults);
    }
}

std::int32_t Crossfade::saturated(double value, SampleFaults& faults) const noexcept
{
    const auto rounded = static_cast<std::int64_t>(value < 0.0 ? value - 0.5 : value + 0.5);
    if (rounded >= -limit && rounded < limit) return static_cast<std::int32_t>(rounded);
    ++faults.saturated;
    return static_cast<std::int32_t>(rounded < 0 ? -limit : limit - 1);
}

} // namespace zrk_tarn
