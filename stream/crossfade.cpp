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
        mixSamples([&](std::size_t i) { return wetShare.at(i) * gain.at(i) * static_cast<double>(wet[i]); }, dry, out,
                   faults);
    }
}

void Crossfade::mix(const UnroundedRow& wet, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    mixSamples([&](std::size_t i) { return wetShare.at(i) * gain.at(i) * wet[i]; }, dry, out, faults);
}

void Crossfade::amplify(UnroundedRow& wet) const noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) wet[i] *= gain.at(i);
}

void Crossfade::fade(const UnroundedRow& amplified, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    mixSamples([&](std::size_t i) { return wetShare.at(i) * amplified[i]; }, dry, out, faults);
}

/// valueAt(i)  the sample's part of the upmix
template <typename ValueAt>
void Crossfade::mixSamples(ValueAt valueAt, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    if (wetShare.isSteadyAt(0.0f)) {
        for (std::size_t i = 0; i < kBlockFrames; ++i) out[i] = dry != nullptr ? (*dry)[i] : 0;
        return;
    }
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        const double dryPart = dry != nullptr ? (1.0 - wetShare.at(i)) * static_cast<double>((*dry)[i]) : 0.0;
        out[i] = saturated(valueAt(i) + dryPart, faults);
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
